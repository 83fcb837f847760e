// The syslog target: writes every record to the system log, at the record's level as priority
// (0 to 7; higher levels as debug), its text laid out by pattern=. With it loaded, the library's
// syslog-style calls leave the writing to this target instead of sending the text twice.
// - A record has reached the syslog socket when log returns (one syslog(3) call per record); the
//   C library's syslog handles a missing daemon and reconnects.
// - Per record: the layout into a stack buffer and one syslog call. No thread.
// - Never calls openlog: the library opened syslog under the application's name, and owns it.
// Parameters: facility=user|daemon|local0..local7 (default: the one the library opened syslog
// with), pattern= (default "[%c/%T] %m"), time=, levels=, name= (default "syslog").
#include <syslog.h>
#include <vexlor/vexlor_target.h>

#include "CLevelSet.h"
#include "CLineLayout.h"
#include "createTarget.h"
#include "facility.h"

namespace {

const char DEFAULT_PATTERN[] = "[%c/%T] %m";

// 0 keeps the facility of openlog.
int facilityOrDefault(const std::string& name) { return name.empty() ? 0 : facilityCode(name, "facility=" + name); }

class CSyslogTarget final : public CLogTargetBase {
public:
    static constexpr const char* KIND = "syslog";

    static ILogTarget* create(const CLogTargetParameters& parameters)
    {
        return createTarget<CSyslogTarget>(parameters);
    }

    explicit CSyslogTarget(const CLogTargetParameters& parameters)
        : CLogTargetBase(parameters, KIND)
        , m_facility(facilityOrDefault(targetParameter(parameters, "facility")))
        , m_levels(CLevelSet::fromParameters(parameters))
        , m_layout(CLineLayout::fromParameters(parameters, DEFAULT_PATTERN))
    {
    }

    void log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& message) override
    {
        if (!m_levels.contains(level)) {
            return;
        }
        CLineBuffer text;
        m_layout.format(text,
                        CLogRecord{pid, depth, seconds, microseconds, level, threadName, componentName, functionName,
                                   message, appname()});
        text.append('\0');
        syslog(m_facility | vexlor_level_to_prio(level), "%s", text.data());
    }

    int isSyslogTarget() override { return 1; }

private:
    const int m_facility;
    const CLevelSet m_levels;
    CLineLayout m_layout;
};

}  // namespace

VEXLOR_TARGET_PLUGIN(CSyslogTarget)
