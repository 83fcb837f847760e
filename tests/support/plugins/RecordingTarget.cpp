// A log target for tests that records every call in the shared CRecorder. Its parameters choose
// its behaviour: name=<target name>, syslog=<isSyslogTarget result>, nested=1 (logs again from
// inside log), create=null|object (the factory fails or makes something that is not a target).
// Compile-time switches build the variants without hooks, without a factory, or with a null one.
#include <cstdlib>
#include <vexlor/vexlor_target.h>

#include "CRecorder.h"

namespace {

std::string parameter(const std::map<std::string, std::string>& params, const std::string& key,
                      const std::string& fallback)
{
    const auto found = params.find(key);
    return found != params.end() ? found->second : fallback;
}

class CRecordingTarget final : public ILogTarget {
public:
    explicit CRecordingTarget(const std::map<std::string, std::string>& params)
        : m_name(parameter(params, "name", "recorder"))
        , m_syslog(std::atoi(parameter(params, "syslog", "0").c_str()))
        , m_nested(parameter(params, "nested", "0") == "1")
    {
        if (m_nested) {
            m_nestedComponent = vexlor_create_component("nested", VX_ALL, "");
        }
    }

    void log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& message) override
    {
        CRecordedCall call;
        call.target = m_name;
        call.kind = "log";
        call.pid = pid;
        call.depth = depth;
        call.seconds = seconds;
        call.microseconds = microseconds;
        call.level = level;
        call.threadName = threadName;
        call.componentName = componentName;
        call.functionName = functionName;
        call.message = message;
        CRecorder::instance().add(call);
        // Only outer records are echoed, so the nesting ends after one level.
        if (m_nested && message.compare(0, 7, "nested:") != 0) {
            vexlor(m_nestedComponent, VX_INFO, "nested:%s", message.c_str());
        }
    }

    void onComponentAdded(vexlor_component* component) override
    {
        CRecordedCall call;
        call.target = m_name;
        call.kind = "component";
        call.component = component;
        call.componentLevel = component->level;
        call.text = component->name;
        CRecorder::instance().add(call);
    }

    std::string getName() override { return m_name; }

    int isSyslogTarget() override
    {
        CRecordedCall call;
        call.target = m_name;
        call.kind = "syslog?";
        CRecorder::instance().add(call);
        return m_syslog;
    }

    void setAppname(const std::string& name) override
    {
        CRecordedCall call;
        call.target = m_name;
        call.kind = "appname";
        call.text = name;
        CRecorder::instance().add(call);
    }

private:
    std::string m_name;
    int m_syslog;
    bool m_nested;
    vexlor_component* m_nestedComponent = nullptr;
};

// Made when the parameters ask for an object that is not a log target.
class CNotATarget final : public IDynamicObject {};

class CFactory final : public IClassFactory {
public:
    IDynamicObject* createObject(const std::string& className, IDynamicObjectCreationParams* params) override
    {
        auto* targetParams = dynamic_cast<CLogTargetParameters*>(params);
        if (className != "LogTarget" || targetParams == nullptr) {
            return nullptr;
        }
        CRecordedCall call;
        call.target = parameter(targetParams->params, "name", "recorder");
        call.kind = "created";
        call.params = targetParams->params;
        CRecorder::instance().add(call);
        const std::string create = parameter(targetParams->params, "create", "");
        if (create == "null") {
            return nullptr;
        }
        if (create == "object") {
            return new CNotATarget;
        }
        return new CRecordingTarget(targetParams->params);
    }

    void destroyObject(IDynamicObject* object) override
    {
        CRecordedCall call;
        call.kind = "destroyed";
        if (auto* target = dynamic_cast<ILogTarget*>(object)) {
            call.target = target->getName();
        }
        CRecorder::instance().add(call);
        delete object;
    }
};

}  // namespace

extern "C" {

#ifndef VEXLOR_TEST_WITHOUT_HOOKS
__attribute__((visibility("default"))) void dynamic_module_init(void* argument)
{
    CRecordedCall call;
    call.kind = "init";
    call.hookArgument = argument;
    CRecorder::instance().add(call);
}

__attribute__((visibility("default"))) void dynamic_module_done()
{
    CRecordedCall call;
    call.kind = "done";
    CRecorder::instance().add(call);
}
#endif

#ifndef VEXLOR_TEST_WITHOUT_FACTORY
// How often this library's getClassFactory ran (tests check the loader does not cache it). The
// counter is file-local, so that the twin library, opened RTLD_GLOBAL too, keeps its own.
static int factoryCalls;

__attribute__((visibility("default"))) int recordingTargetFactoryCalls()
{
    return __atomic_load_n(&factoryCalls, __ATOMIC_RELAXED);
}

__attribute__((visibility("default"))) IClassFactory* getClassFactory()
{
    static CFactory factory;
    __atomic_add_fetch(&factoryCalls, 1, __ATOMIC_RELAXED);
#ifdef VEXLOR_TEST_NULL_FACTORY
    return nullptr;
#else
    return CRecorder::instance().factoryAvailable() ? &factory : nullptr;
#endif
}
#endif

}  // extern "C"
