// Start and end messages of a target's fault, with the count of lost records.
#include "CFaultReport.h"

#include <cstring>
#include <syslog.h>

#include "CTargetCounters.h"
#include "coarseClock.h"

CFaultReport::~CFaultReport()
{
    if (m_failing) {
        syslog(LOG_ERR, "%s: %llu records lost (%s) until the target was unloaded", m_who.c_str(), m_lost,
               reason().c_str());
    }
}

bool CFaultReport::retryDue() const
{
    return !m_failing || m_retry == ERetry::EVERY_RECORD || coarseMilliseconds() - m_lastAttemptMs >= RETRY_MS;
}

void CFaultReport::failed(const char* what, int error, unsigned long long records)
{
    failed(what, std::string(std::strerror(error)), records);
}

void CFaultReport::failed(const char* what, const std::string& why, unsigned long long records)
{
    m_lastAttemptMs = coarseMilliseconds();
    lost(records);
    if (!m_failing) {
        m_failing = true;
        m_reason = std::string(what) + " failed: " + why;
        if (m_counters != nullptr) {
            m_counters->setState(m_reason);
        }
        syslog(LOG_ERR, "%s: %s; records are lost until it works again (%s)", m_who.c_str(), m_reason.c_str(),
               m_retry == ERetry::EVERY_RECORD ? "tried again with every record" : "retried once a second");
    }
}

unsigned long long CFaultReport::recovered()
{
    if (!m_failing) {
        return 0;
    }
    const unsigned long long count = m_lost;
    syslog(LOG_WARNING, "%s: works again; %llu records were lost (%s)", m_who.c_str(), count, reason().c_str());
    m_failing = false;
    m_lost = 0;
    if (m_counters != nullptr) {
        m_counters->setState(std::string());
    }
    return count;
}

void CFaultReport::lost(unsigned long long records)
{
    m_lost += records;
    if (m_counters != nullptr) {
        m_counters->add(CTargetCounters::LOST, records);
    }
}
