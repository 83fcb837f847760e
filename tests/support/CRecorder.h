// What the test plug-ins saw, kept in a shared library that both the test executable and the
// plug-ins (loaded with dlopen) link, so both sides reach the same store.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <vexlor/vexlor.h>

// One call into a test plug-in.
struct CRecordedCall {
    std::string target;  // the target's name ("" for module hooks)
    std::string kind;    // "log", "component", "appname", "syslog?", "created", "destroyed", "init", "done"
    // "log": the nine record values.
    int pid = 0;
    int depth = 0;
    long long seconds = 0;
    int microseconds = 0;
    vexlor_level* level = nullptr;
    std::string threadName;
    std::string componentName;
    std::string functionName;
    std::string message;
    // "component": the record and its mask at the time; "appname": the name.
    vexlor_component* component = nullptr;
    unsigned int componentLevel = 0;
    std::string text;
    // "created": the parameters; "init": the hook's argument.
    std::map<std::string, std::string> params;
    void* hookArgument = nullptr;
    std::thread::id thread;
};

class CRecorder {
public:
    static CRecorder& instance();

    void add(CRecordedCall call);
    std::vector<CRecordedCall> calls() const;
    // Calls of one kind, optionally for one target only.
    std::vector<CRecordedCall> calls(const std::string& kind, const std::string& target = std::string()) const;
    // The messages of the "log" calls a target received, in order.
    std::vector<std::string> messages(const std::string& target) const;
    void clear();

    // Switch for the plug-ins: while false, getClassFactory returns null.
    void setFactoryAvailable(bool available);
    bool factoryAvailable() const;

private:
    mutable std::mutex m_mutex;
    std::vector<CRecordedCall> m_calls;  // guarded by m_mutex
    bool m_factoryAvailable = true;      // guarded by m_mutex
};
