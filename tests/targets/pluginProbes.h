// Probes shared by the target tests: whether a plug-in library is mapped in the process, and the
// quoting the library's messages use for paths.
#pragma once

#include <dlfcn.h>
#include <string>

inline bool isOpen(const std::string& path)
{
    void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) {
        dlclose(handle);
    }
    return handle != nullptr;
}

inline std::string quoted(const std::string& text)
{
    return "\"" + text + "\"";
}
