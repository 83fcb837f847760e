// The example log target: prints each record as one readable line to stdout. It is the smallest
// complete target and the model for writing your own. Checklist for target authors:
// - Thread: every call may come from any thread, but never two at once: the library calls all
//   targets with its container mutex held. No lock of your own is needed for that.
// - Lock: never wait inside a call for another thread that logs (it waits for you). Logging
//   through the library from inside a call is allowed; the record comes back to you nested.
// - Lifetimes: strings passed in are valid only during the call; the creation parameters only
//   inside the constructor. Component records stay valid for the life of the process.
// - getName returns the same name every time: it is the target's key in the registry
//   (CLogTargetBase takes it from name=, with the default given below).
// - Exceptions must not escape from any call; throw only from the constructor, to refuse the
//   creation with a message for syslog.
// Parameters: name=<target name> (default "example"), prefix=<text put before every line>.
#include <cstdio>
#include <ctime>
#include <vexlor/vexlor_target.h>

namespace {

const char* levelName(const vexlor_level* level)
{
    static const char* const NAMES[] = {"EMERG", "ALERT", "CRIT", "ERR", "WARN", "NOTICE", "INFO", "DEBUG", "TRACE"};
    return level->numeric < sizeof NAMES / sizeof NAMES[0] ? NAMES[level->numeric] : "LEVEL";
}

class CConsoleExampleTarget final : public CLogTargetBase {
public:
    // Copy what the target keeps: the parameters exist only while it is made.
    explicit CConsoleExampleTarget(const CLogTargetParameters& parameters)
        : CLogTargetBase(parameters, "example")
        , m_prefix(targetParameter(parameters, "prefix"))
    {
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

private:
    const std::string m_prefix;
};

}  // namespace

// The one symbol a target library must export; the factory lives as long as the library.
VEXLOR_TARGET_PLUGIN(CConsoleExampleTarget)
