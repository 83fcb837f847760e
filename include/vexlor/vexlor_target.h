// vexlor plug-in SDK: what a log-target plug-in library compiles against.
// Binary interface: the slot order of every virtual operation and every argument type below are
// shared with libvexlor.so.1 built separately. Append, never reorder.
#ifndef VEXLOR_VEXLOR_TARGET_H
#define VEXLOR_VEXLOR_TARGET_H

#include <map>
#include <string>

#include <vexlor/vexlor.h>

// Base of every object a plug-in factory creates. Slots 0-1: the destructor pair.
class VEXLOR_API IDynamicObject {
public:
    virtual ~IDynamicObject() {}
};

// Base of every creation parameter object. Slots 0-1: the destructor pair.
class VEXLOR_API IDynamicObjectCreationParams {
public:
    virtual ~IDynamicObjectCreationParams() {}
};

// The parameters of one log target: every well-formed key=value item of its configuration line,
// trimmed, plus "application-name" (see TARGET_TOKEN_APPLICATION_NAME). The object is a temporary
// of the configuration step: copy what you need inside createObject.
class VEXLOR_API CLogTargetParameters : public IDynamicObjectCreationParams {
public:
    std::map<std::string, std::string> params;
};

// A log target. The library calls every operation below with its target-container mutex held
// (recursive), so a target never sees two calls at once and need not lock against the library.
// Calls come from any application thread (log), the thread that reads the configuration
// (creation, onComponentAdded, isSyslogTarget, setAppname) or the configuration watcher thread.
// A target may log through the library from inside any call on the same thread; the nested
// record reaches every target, this one included, before the outer call returns. A target must
// never wait inside these calls for another thread that logs, and must not let exceptions escape.
class VEXLOR_API ILogTarget : public IDynamicObject {
public:
    // Slot 2: one record. The strings are valid only during the call; copy what you keep.
    // `level` is never null; `seconds`/`microseconds` come from the same wall-clock reading.
    virtual void log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
                     const std::string& threadName, const std::string& componentName,
                     const std::string& functionName, const std::string& message) = 0;
    // Slot 3: a component was created, asked for again, or had its mask set by the configuration.
    // The record stays valid for the life of the process.
    virtual void onComponentAdded(vexlor_component* component) = 0;
    // Slot 4: the target's name; the registry key. Must return the same name every time.
    virtual std::string getName() = 0;
    // Slot 5: exactly 1 means this target writes records to syslog itself.
    virtual int isSyslogTarget() = 0;
    // Slot 6: the application name changed. The string is valid only during the call.
    virtual void setAppname(const std::string& name) = 0;
};

// The factory a plug-in's getClassFactory() returns. The plug-in owns it; it must stay usable as
// long as the plug-in library is open. The library asks for class "LogTarget".
class IClassFactory {
public:
    // Slot 0: a new object, or null. `params` is a CLogTargetParameters for "LogTarget".
    virtual IDynamicObject* createObject(const std::string& className, IDynamicObjectCreationParams* params) = 0;
    // Slot 1: takes back an object this factory created, exactly once, before the library closes.
    virtual void destroyObject(IDynamicObject* object) = 0;

protected:
    ~IClassFactory() = default;  // never deleted through this interface
};

// For target authors: the parameter `key` of the target's configuration line, or `fallback`.
inline std::string targetParameter(const CLogTargetParameters& parameters, const std::string& key,
                                   const std::string& fallback = std::string())
{
    const auto found = parameters.params.find(key);
    return found != parameters.params.end() ? found->second : fallback;
}

// For target authors: a class factory for one target class. For class "LogTarget" it calls
// `static ILogTarget* Target::create(const CLogTargetParameters&)` (null refuses the creation;
// say why in syslog), and it deletes what it is handed back. A plug-in's getClassFactory then
// returns the address of one static CLogTargetFactory<Target>.
template <typename Target>
class CLogTargetFactory final : public IClassFactory {
public:
    IDynamicObject* createObject(const std::string& className, IDynamicObjectCreationParams* params) override
    {
        auto* parameters = dynamic_cast<CLogTargetParameters*>(params);
        return className == "LogTarget" && parameters != nullptr ? Target::create(*parameters) : nullptr;
    }

    void destroyObject(IDynamicObject* object) override { delete object; }
};

// The parameter key under which a target receives the application name: "application-name".
VEXLOR_API std::string TARGET_TOKEN_APPLICATION_NAME();

// The symbols a plug-in library exports (plain names, declare them extern "C"):
//   void dynamic_module_init(void* arg);   optional, once, right after the library is opened
//   IClassFactory* getClassFactory();      required
//   void dynamic_module_done();            optional, once, right before the library is closed
// All three run on the thread that reads the configuration, with the container mutex held.
extern "C" {
typedef void (*vexlor_module_init_fn)(void* arg);
typedef IClassFactory* (*vexlor_get_class_factory_fn)();
typedef void (*vexlor_module_done_fn)();
}

#endif  // VEXLOR_VEXLOR_TARGET_H
