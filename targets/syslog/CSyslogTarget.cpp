// The syslog target: writes every record to the system log, at the record's level as priority
// (0 to 7; higher levels as debug), its text laid out by pattern=. With it loaded, the library's
// syslog-style calls leave the writing to this target instead of sending the text twice.
// - A record has been handed to syslog(3) when log returns (one call per record), which sends it
//   to the daemon's socket. That call waits while the daemon does not read (a stopped daemon holds
//   the program up, as it does every program that uses syslog), and drops the record without a
//   word while no daemon listens: the C library tells its caller neither, so nothing is counted.
// - Per record: the layout into a stack buffer and one syslog call. No thread.
// - Never calls openlog: the library owns syslog, and the identity is the one it last opened it
//   with (the program's name at the first vexlor_init, the application's name when set).
// Parameters: facility=user|daemon|local0..local7 (default: the one the library opened syslog
// with), pattern= (default "[%c/%T] %m"), time=, levels=, name= (default "syslog").
#include <syslog.h>
#include <vexlor/vexlor_target.h>

#include "CFilteredTarget.h"
#include "CLineLayout.h"
#include "CTargetCounters.h"
#include "createTarget.h"
#include "facility.h"

namespace {

const char DEFAULT_PATTERN[] = "[%c/%T] %m";

// 0 keeps the facility of openlog.
int facilityOrDefault(const std::string& name) { return name.empty() ? 0 : facilityCode(name, "facility=" + name); }

class CSyslogTarget : public CFilteredTarget {
public:
    static constexpr const char* KIND = "syslog";

    explicit CSyslogTarget(const CLogTargetParameters& parameters)
        : CFilteredTarget(parameters, KIND)
        , m_facility(facilityOrDefault(targetParameter(parameters, "facility")))
        , m_layout(CLineLayout::fromParameters(parameters, DEFAULT_PATTERN))
        , m_counters(KIND, getName())
    {
        countSuppressedInto(m_counters);
    }

    int isSyslogTarget() override { return 1; }

protected:
    void write(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
               const std::string& threadName, const std::string& componentName, const std::string& functionName,
               const std::string& message)
    {
        CLineBuffer text;
        m_layout.format(text,
                        CLogRecord{pid, depth, seconds, microseconds, level, threadName, componentName, functionName,
                                   message, appname()});
        text.append('\0');
        syslog(m_facility | vexlor_level_to_prio(level), "%s", text.data());
        m_counters.add(CTargetCounters::WRITTEN);  // handed to syslog(3), which tells no more
    }

private:
    const int m_facility;
    CLineLayout m_layout;
    CTargetCounters m_counters;
};

}  // namespace

VEXLOR_SHIPPED_TARGET(CFiltered<CSyslogTarget>)
