// A log target for tests that records every call in the shared CRecorder. Its parameters choose
// its behaviour: name=<target name>, syslog=<isSyslogTarget result>, nested=1 (logs again from
// inside log), rename=<application name> (sets it from inside its first log call), quiet=1
// (records no log call, so that logging allocates nothing here),
// create=null|object (the factory fails or makes something that is not a target).
// Compile-time switches build the variants without hooks, without a factory, or with a null one.
#include <cstdlib>
#include <vexlor/vexlor_target.h>

#include "CRecorder.h"

namespace {

void record(CRecordedCall call) { CRecorder::instance().add(std::move(call)); }

class CRecordingTarget final : public ILogTarget {
public:
    explicit CRecordingTarget(const std::map<std::string, std::string>& params)
        : m_name(params.at("name"))
        , m_syslog(std::atoi(params.at("syslog").c_str()))
        , m_nested(params.at("nested") == "1" ? vexlor_create_component("nested", VX_ALL, "") : nullptr)
        , m_rename(params.at("rename"))
        , m_quiet(params.at("quiet") == "1")
    {
    }

    void log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& message) override
    {
        if (m_quiet) {
            return;
        }
        record({m_name, "log", "", decltype(CRecordedCall::params)(), nullptr, 0, pid, depth, seconds, microseconds,
                level, threadName, componentName, functionName, message});
        // Only outer records are echoed, so the nesting ends after one level.
        if (m_nested != nullptr && message.compare(0, 7, "nested:") != 0) {
            vexlor(m_nested, VX_INFO, "nested:%s", message.c_str());
        }
        if (!m_rename.empty()) {
            const std::string name = std::move(m_rename);
            vexlor_set_applicationname(name.c_str());
            record({m_name, "renamed", name});  // after the call: this target must still exist
        }
    }

    void onComponentAdded(vexlor_component* component) override
    {
        record({m_name, "component", component->name, {}, component, component->level});
    }

    std::string getName() override { return m_name; }

    int isSyslogTarget() override
    {
        record({m_name, "syslog?"});
        return m_syslog;
    }

    void setAppname(const std::string& name) override { record({m_name, "appname", name}); }

private:
    std::string m_name;
    int m_syslog;
    vexlor_component* m_nested;  // null unless nested=1
    std::string m_rename;  // emptied once used
    bool m_quiet;
};

// Made when the parameters ask for an object that is not a log target.
class CNotATarget final : public IDynamicObject { };

class CFactory final : public IClassFactory {
public:
    IDynamicObject* createObject(const std::string& className, IDynamicObjectCreationParams* params) override
    {
        auto* targetParams = dynamic_cast<CLogTargetParameters*>(params);
        if (className != "LogTarget" || targetParams == nullptr) {
            return nullptr;
        }
        // Defaults for the keys the line leaves out. Not operator[]: its piecewise_construct can
        // become a unique symbol, and the loader never unloads a library that defines one.
        auto values = targetParams->params;
        values.insert({{"name", ""}, {"syslog", "0"}, {"nested", ""}, {"rename", ""}, {"quiet", ""}, {"create", ""}});
        record({values.at("name"), "created", "", targetParams->params});
        if (values.at("create") == "null") {
            return nullptr;
        }
        return values.at("create") == "object" ? static_cast<IDynamicObject*>(new CNotATarget)
                                               : new CRecordingTarget(values);
    }

    void destroyObject(IDynamicObject* object) override
    {
        auto* target = dynamic_cast<ILogTarget*>(object);
        record({target != nullptr ? target->getName() : "", "destroyed"});
        delete object;
    }
};

}  // namespace

extern "C" {

#ifndef VEXLOR_TEST_WITHOUT_HOOKS
__attribute__((visibility("default"))) void dynamic_module_init(void* /*argument*/) { record({"", "init"}); }
__attribute__((visibility("default"))) void dynamic_module_done() { record({"", "done"}); }
#endif

#ifndef VEXLOR_TEST_WITHOUT_FACTORY
__attribute__((visibility("default"))) IClassFactory* getClassFactory()
{
    [[maybe_unused]] static CFactory factory;
    record({"", "factory"});
#ifdef VEXLOR_TEST_NULL_FACTORY
    return nullptr;
#else
    return CRecorder::instance().factoryAvailable() ? &factory : nullptr;
#endif
}
#endif

}  // extern "C"
