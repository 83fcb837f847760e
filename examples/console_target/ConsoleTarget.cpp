// The example log target: prints each record as one readable line to stdout. It is the smallest
// complete target and the model for writing your own. Checklist for target authors:
// - Thread: every call may come from any thread, but never two at once: the library calls all
//   targets with its container mutex held. No lock of your own is needed for that.
// - Lock: never wait inside a call for another thread that logs (it waits for you). Logging
//   through the library from inside a call is allowed; the record comes back to you nested.
// - Lifetimes: strings passed in are valid only during the call; the creation parameters only
//   inside createObject. Component records stay valid for the life of the process.
// - getName returns the same name every time: it is the target's key in the registry.
// - Exceptions must not escape from any call.
// Parameters: name=<target name> (default "console"), prefix=<text put before every line>.
#include <cstdio>
#include <ctime>
#include <new>
#include <vexlor/vexlor_target.h>

namespace {

const char* levelName(const vexlor_level* level)
{
    static const char* const NAMES[] = {"EMERG", "ALERT", "CRIT", "ERR", "WARN", "NOTICE", "INFO", "DEBUG", "ENTER"};
    if (level->numeric < sizeof NAMES / sizeof NAMES[0]) {
        return NAMES[level->numeric];
    }
    return level->numeric == 32 ? "ALL" : "LEVEL";
}

class CConsoleTarget final : public ILogTarget {
public:
    explicit CConsoleTarget(const CLogTargetParameters& parameters)
        : m_name(targetParameter(parameters, "name", "console"))
        , m_prefix(targetParameter(parameters, "prefix"))
    {
    }

    // Called by the factory while the parameters exist: copy what the target keeps.
    static ILogTarget* create(const CLogTargetParameters& parameters)
    {
        return new (std::nothrow) CConsoleTarget(parameters);
    }

    void log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& message) override
    {
        const auto time = static_cast<std::time_t>(seconds);
        std::tm local{};
        localtime_r(&time, &local);
        char clock[16];
        std::strftime(clock, sizeof clock, "%H:%M:%S", &local);
        // Indent by the tracing depth so that nested functions read as a tree.
        const int indent = depth > 0 ? depth * 2 : 0;
        std::printf("%s%s.%06d %d %-6s %-8s %-10s %*s%s%s%s\n", m_prefix.c_str(), clock, microseconds, pid,
                    levelName(level), componentName.c_str(), threadName.c_str(), indent, "", functionName.c_str(),
                    functionName.empty() ? "" : ": ", message.c_str());
        std::fflush(stdout);
    }

    void onComponentAdded(vexlor_component*) override {}
    std::string getName() override { return m_name; }
    int isSyslogTarget() override { return 0; }
    void setAppname(const std::string&) override {}

private:
    const std::string m_name;
    const std::string m_prefix;
};

}  // namespace

// The one symbol a target library must export; the factory lives as long as the library.
extern "C" __attribute__((visibility("default"))) IClassFactory* getClassFactory()
{
    static CLogTargetFactory<CConsoleTarget> factory;
    return &factory;
}
