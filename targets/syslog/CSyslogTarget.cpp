// The syslog target: writes every record to the system log, at the record's level as priority
// (0 to 7, higher levels as debug). With it loaded, the library's syslog-style calls leave the
// writing to this target instead of sending the text a second time. The library has opened
// syslog under the application's name already; this target only chooses the facility.
// Parameters: name=<target name> (default "syslog"), facility=user|daemon|local0..local7
// (default: the one the library opened syslog with), function=1 (put the traced function
// before the message).
#include <syslog.h>
#include <vexlor/vexlor_target.h>

#include "facility.h"

namespace {

// 0 keeps the facility of openlog.
int facilityOrDefault(const std::string& name)
{
    return name.empty() ? 0 : facilityCode(name, "syslog target");
}

class CSyslogTarget final : public CLogTargetBase {
public:
    explicit CSyslogTarget(const CLogTargetParameters& parameters)
        : CLogTargetBase(parameters, "syslog")
        , m_facility(facilityOrDefault(targetParameter(parameters, "facility")))
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
