// One plug-in shared library loaded at run time: opens it, runs its optional start-up and
// shut-down hooks and hands out its class factory. Owns the dlopen handle.
#pragma once

#include <string>

#include <vexlor/vexlor.h>

class IClassFactory;

class VEXLOR_API CDynamicModule {
public:
    explicit CDynamicModule(const std::string& libPath);
    // Runs dynamic_module_done and closes the library if it was loaded. Never throws.
    virtual ~CDynamicModule();
    CDynamicModule(const CDynamicModule&) = delete;
    CDynamicModule& operator=(const CDynamicModule&) = delete;

    // Opens the library (RTLD_LAZY | RTLD_GLOBAL) and runs dynamic_module_init(arg). 0 or -1.
    int load(void* arg);
    // Looks up and calls the library's getClassFactory on every call; null when unavailable.
    IClassFactory* getClassFactory() const;
    const std::string& getLibPath() const;
    // The loader's current error text (reading it clears it), or null.
    const char* lastError() const;

private:
    void* m_handle = nullptr;
    std::string m_libPath;
};
