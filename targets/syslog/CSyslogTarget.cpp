// The syslog target: writes every record to the system log, at the record's level as priority
// (0 to 7, higher levels as debug). With it loaded, the library's syslog-style calls leave the
// writing to this target instead of sending the text a second time. The library has opened
// syslog under the application's name already; this target only chooses the facility.
// Parameters: name=<target name> (default "syslog"), facility=user|daemon|local0..local7
// (default: the one the library opened syslog with), function=1 (put the traced function
// before the message).
#include <stdexcept>
#include <syslog.h>
#include <vexlor/vexlor_target.h>

namespace {

// 0 keeps the facility of openlog.
int facilityCode(const std::string& name)
{
    if (name.empty()) {
        return 0;
    }
    if (name == "user") {
        return LOG_USER;
    }
    if (name == "daemon") {
        return LOG_DAEMON;
    }
    if (name.size() == 6 && name.compare(0, 5, "local") == 0 && name[5] >= '0' && name[5] <= '7') {
        return LOG_LOCAL0 + (name[5] - '0') * (LOG_LOCAL1 - LOG_LOCAL0);
    }
    throw std::runtime_error("syslog target: unknown facility \"" + name + "\" (user, daemon, local0 to local7)");
}

class CSyslogTarget final : public CLogTargetBase {
public:
    explicit CSyslogTarget(const CLogTargetParameters& parameters)
        : CLogTargetBase(parameters, "syslog")
        , m_facility(facilityCode(targetParameter(parameters, "facility")))
        , m_withFunction(targetParameter(parameters, "function") == "1")
    {
    }

    void log(int, int, long long, int, vexlor_level* level, const std::string& threadName,
             const std::string& componentName, const std::string& functionName, const std::string& message) override
    {
        const int priority = m_facility | vexlor_level_to_prio(level);
        if (m_withFunction && !functionName.empty()) {
            syslog(priority, "[%s/%s] %s: %s", componentName.c_str(), threadName.c_str(), functionName.c_str(),
                   message.c_str());
        } else {
            syslog(priority, "[%s/%s] %s", componentName.c_str(), threadName.c_str(), message.c_str());
        }
    }

    int isSyslogTarget() override { return 1; }

private:
    const int m_facility;
    const bool m_withFunction;
};

}  // namespace

VEXLOR_TARGET_PLUGIN(CSyslogTarget)
