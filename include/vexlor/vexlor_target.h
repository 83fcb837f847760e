// vexlor plug-in SDK: what a log-target plug-in library compiles against.
// Binary interface: the slot order of every virtual operation and every argument type of the
// interfaces below are shared with libvexlor.so.1 built separately. Append, never reorder.
// The helpers at the end (CLogTargetBase, CLogTargetFactory, VEXLOR_TARGET_PLUGIN) are compiled
// into the plug-in and are not part of that interface.
#ifndef VEXLOR_VEXLOR_TARGET_H
#define VEXLOR_VEXLOR_TARGET_H

#include <exception>
#include <map>
#include <new>
#include <string>
#include <syslog.h>

#include <vexlor/vexlor.h>

// Base of every object a plug-in factory creates. Slots 0-1: the destructor pair.
class VEXLOR_API IDynamicObject {
public:
    virtual ~IDynamicObject() { }
};

// Base of every creation parameter object. Slots 0-1: the destructor pair.
class VEXLOR_API IDynamicObjectCreationParams {
public:
    virtual ~IDynamicObjectCreationParams() { }
};

// The parameters of one log target: every well-formed key=value item of its configuration line,
// trimmed, plus "application-name" (see TARGET_TOKEN_APPLICATION_NAME). The object is a temporary
// of the configuration step: copy what you need inside createObject.
class VEXLOR_API CLogTargetParameters : public IDynamicObjectCreationParams {
public:
    std::map<std::string, std::string> params;
};

// A log target.
//
// Threads and the lock. The library makes every call below with its container mutex held (a
// recursive mutex), so a target never sees two calls at once and calls of different targets
// never overlap: a target needs no lock against the library. The calls come from
//  - log: every application thread that logs;
//  - onComponentAdded: application threads that create a component (vexlor_create_component),
//    and the thread that reads the configuration when it sets a component's mask;
//  - isSyslogTarget, getName, setAppname: the thread that reads the configuration, which is the
//    application thread at the first library call and when it sets the application name, or the
//    library's configuration watcher thread.
// Calls back into the library from inside any call, on the same thread:
//  - logging is allowed; the nested record reaches every target, this one included, before the
//    outer call returns (guard against endless recursion yourself);
//  - setting the application name, or anything else that makes the configuration be re-read on
//    this thread, is allowed but rarely useful: that re-read waits until the outermost call into
//    the targets has returned, so no target (this one included) is unloaded while one of its
//    calls is running, and the record under way still reaches every target.
// Never wait inside a call for another thread that logs: it waits for the mutex you hold.
// fork(): the library holds the container mutex across every fork, so a child never inherits a
// target in the middle of a call. A target with a thread of its own must put its own locks and
// buffers right in a pthread_atfork child handler; it must not take them in a prepare handler
// (that would take them before the library's mutex, against the order of every log call).
// Never let an exception escape: the library catches nothing that a target throws.
class VEXLOR_API ILogTarget : public IDynamicObject {
public:
    // Slot 2: one record. The strings are valid only during the call; copy what you keep.
    // `level` is never null; `seconds`/`microseconds` come from the same wall-clock reading.
    virtual void log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
                     const std::string& threadName, const std::string& componentName, const std::string& functionName,
                     const std::string& message) = 0;
    // Slot 3: a component was created, asked for again, or had its mask set by the configuration.
    // The record stays valid for the life of the process.
    virtual void onComponentAdded(vexlor_component* component) = 0;
    // Slot 4: the target's name; the registry key. Must return the same name every time.
    virtual std::string getName() = 0;
    // Slot 5: exactly 1 means this target writes records to syslog itself; asked once after each
    // successful configuration read that keeps the target.
    virtual int isSyslogTarget() = 0;
    // Slot 6: the application name changed. The string is valid only during the call.
    virtual void setAppname(const std::string& name) = 0;
};

// The factory a plug-in's getClassFactory() returns. The plug-in owns it; it must stay usable as
// long as the plug-in library is open. The library asks for class "LogTarget".
class IClassFactory {
public:
    // Slot 0: a new object, or null. `params` is a CLogTargetParameters for "LogTarget". Runs on
    // the thread that reads the configuration, with the container mutex held.
    virtual IDynamicObject* createObject(const std::string& className, IDynamicObjectCreationParams* params) = 0;
    // Slot 1: takes back an object this factory created, exactly once, before the library closes.
    // Runs with the container mutex held: on the thread that reads the configuration when the
    // configuration no longer names the target, or on the thread that ends the process (or
    // unloads the library) when the library shuts down.
    virtual void destroyObject(IDynamicObject* object) = 0;

protected:
    ~IClassFactory() = default;  // never deleted through this interface
};

// The parameter key under which a target receives the application name: "application-name".
VEXLOR_API std::string TARGET_TOKEN_APPLICATION_NAME();

// The symbols a plug-in library exports (plain names, declare them extern "C"):
//   void dynamic_module_init(void* arg);   optional, once, right after the library is opened;
//                                          `arg` is always null for a target library
//   IClassFactory* getClassFactory();      required (VEXLOR_TARGET_PLUGIN defines it)
//   void dynamic_module_done();            optional, once, right before the library is closed
// All three run with the container mutex held, on the threads named for createObject and
// destroyObject.
extern "C" {
typedef void (*vexlor_module_init_fn)(void* arg);
typedef IClassFactory* (*vexlor_get_class_factory_fn)();
typedef void (*vexlor_module_done_fn)();
}

// ---- Helpers for target authors (header-only, compiled into the plug-in) ----

// The parameter `key` of the target's configuration line, or `fallback` when it is missing or
// empty.
inline std::string targetParameter(const CLogTargetParameters& parameters, const std::string& key,
                                   const std::string& fallback = std::string())
{
    const auto found = parameters.params.find(key);
    return found != parameters.params.end() && !found->second.empty() ? found->second : fallback;
}

// The base of a target: its name from the `name=` parameter (or the default the target gives),
// the application name kept current, and the operations most targets leave alone. A target
// overrides log and whatever else it needs; an override of setAppname calls this one first.
class CLogTargetBase : public ILogTarget {
public:
    std::string getName() override { return m_name; }
    void onComponentAdded(vexlor_component* /*component*/) override { }
    int isSyslogTarget() override { return 0; }
    void setAppname(const std::string& name) override { m_appname = name; }

protected:
    CLogTargetBase(const CLogTargetParameters& parameters, const char* defaultName)
        : m_name(targetParameter(parameters, "name", defaultName))
        , m_appname(targetParameter(parameters, TARGET_TOKEN_APPLICATION_NAME()))
    {
    }

    // Empty until the application names itself.
    const std::string& appname() const { return m_appname; }

private:
    const std::string m_name;
    std::string m_appname;
};

namespace vexlor_sdk {

// Target::create(parameters) when the class has one, else new Target(parameters).
template <typename Target>
auto makeTarget(const CLogTargetParameters& parameters, int) -> decltype(Target::create(parameters))
{
    return Target::create(parameters);
}

template <typename Target>
ILogTarget* makeTarget(const CLogTargetParameters& parameters, long)
{
    return new Target(parameters);
}

}  // namespace vexlor_sdk

// The class factory of one target class. For class "LogTarget" it makes the target from the
// line's parameters and deletes what it is handed back. A target refuses its creation by
// throwing from its constructor (or returning null from a static create): the text of the
// exception goes to syslog at LOG_ERR, so say there what is wrong with which parameter; the
// library then reports the failed creation.
template <typename Target>
class CLogTargetFactory final : public IClassFactory {
public:
    IDynamicObject* createObject(const std::string& className, IDynamicObjectCreationParams* params) override
    {
        auto* parameters = dynamic_cast<CLogTargetParameters*>(params);
        if (className != "LogTarget" || parameters == nullptr) {
            return nullptr;
        }
        try {
            return vexlor_sdk::makeTarget<Target>(*parameters, 0);
        } catch (const std::exception& e) {
            syslog(LOG_ERR, "%s", e.what());
        } catch (...) {
            syslog(LOG_ERR, "log target: creation failed with an unknown exception");
        }
        return nullptr;
    }

    void destroyObject(IDynamicObject* object) override { delete object; }
};

// Defines the plug-in's getClassFactory for one target class: VEXLOR_TARGET_PLUGIN(CMyTarget)
#define VEXLOR_TARGET_PLUGIN(Target)                                                                                   \
    extern "C" __attribute__((visibility("default"))) IClassFactory* getClassFactory()                                 \
    {                                                                                                                  \
        static CLogTargetFactory<Target> factory;                                                                      \
        return &factory;                                                                                               \
    }

#endif  // VEXLOR_VEXLOR_TARGET_H
