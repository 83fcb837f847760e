// What the test plug-ins saw, kept in a shared library that both the test executable and the
// plug-ins (loaded with dlopen) link, so both sides reach the same store.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <vexlor/vexlor.h>

// One call into a test plug-in. Every member has a default, so a plug-in records a call with a
// short braced list in member order.
struct CRecordedCall {
    std::string target{};  // the target's name ("" for module hooks and the factory look-up)
    std::string kind{};  // log, component, appname, syslog?, created, destroyed, init, done, factory
    std::string text{};  // "component": the component's name; "appname": the name
    std::map<std::string, std::string> params{};  // "created": the target line's parameters
    vexlor_component* component = nullptr;  // "component": the record and its mask at the time
    unsigned int componentLevel = 0;
    // "log": the nine record values.
    int pid = 0, depth = 0;
    long long seconds = 0;
    int microseconds = 0;
    vexlor_level* level = nullptr;
    std::string threadName{}, componentName{}, functionName{}, message{};
};

class CRecorder {
public:
    static CRecorder& instance();

    void add(CRecordedCall call);
    // All calls, or those of one kind, optionally for one target only.
    std::vector<CRecordedCall> calls(const std::string& kind = "", const std::string& target = "") const;
    // The messages of the "log" calls a target received, in order.
    std::vector<std::string> messages(const std::string& target) const;
    // Forgets all calls and makes the factory available again.
    void clear();

    // Switch for the plug-ins: while false, getClassFactory returns null.
    void setFactoryAvailable(bool available) { m_factoryAvailable = available; }
    bool factoryAvailable() const { return m_factoryAvailable; }

private:
    mutable std::mutex m_mutex;
    std::vector<CRecordedCall> m_calls;  // guarded by m_mutex
    std::atomic<bool> m_factoryAvailable{true};
};
