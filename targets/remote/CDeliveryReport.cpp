// The sender's fault messages and their counts.
#include "CDeliveryReport.h"

#include <syslog.h>

#include "CTargetCounters.h"

namespace {

enum : unsigned { RECONNECTS = CTargetCounters::OWN, SENT_AGAIN };

}  // namespace

void CDeliveryReport::count(unsigned counter, unsigned long long records)
{
    if (m_settings.counters != nullptr) {
        m_settings.counters->add(counter, records);
    }
}

void CDeliveryReport::sentAgain(unsigned long long records)
{
    m_sentAgain += records;
    count(SENT_AGAIN, records);
}

void CDeliveryReport::attemptFailed(const std::string& error)
{
    if (m_failures++ == 0 && !m_faultOpen) {
        openFault();
        syslog(LOG_ERR,
               "%s: cannot deliver to %s - %s; records wait in the queue (%zu records or %zu bytes at most) and "
               "delivery is retried",
               m_settings.owner.c_str(), m_settings.destination.c_str(), error.c_str(), m_settings.queueRecords,
               m_settings.queueBytes);
    }
    m_backlogKnown = false;
}

void CDeliveryReport::connectionLost(const std::string& error, std::size_t unconfirmed)
{
    if (!m_faultOpen) {
        openFault();
        syslog(LOG_ERR,
               "%s: lost the connection to %s - %s; %zu records not confirmed yet are sent again on the next one",
               m_settings.owner.c_str(), m_settings.destination.c_str(), error.c_str(), unconfirmed);
    }
    m_backlogKnown = false;
}

void CDeliveryReport::connectionReset(const std::string& error)
{
    syslog(LOG_WARNING, "%s: lost the connection to %s - %s", m_settings.owner.c_str(), m_settings.destination.c_str(),
           error.c_str());
}

void CDeliveryReport::openFault()
{
    // Drops of a run under way count as the fault's.
    m_faultOpen = true;
    if (m_settings.counters != nullptr) {
        m_settings.counters->setState("cannot deliver to " + m_settings.destination);
    }
    m_dropped = m_droppedInRun;
    m_droppedInRun = 0;
}

void CDeliveryReport::connected(std::uint64_t backlogEnd)
{
    m_backlogKnown = m_faultOpen;
    m_backlogEnd = backlogEnd;
    count(RECONNECTS, m_connections++ > 0 ? 1 : 0);
}

void CDeliveryReport::delivered(unsigned long long records, std::uint64_t head)
{
    count(CTargetCounters::WRITTEN, records);
    if (records > 0 && m_refused > 0) {
        syslog(LOG_NOTICE, "%s: %s takes records again; it refused %llu", m_settings.owner.c_str(),
               m_settings.destination.c_str(), m_refused);
        m_refused = 0;
    }
    if (m_faultOpen) {
        m_delivered += records;
        if (m_backlogKnown && head >= m_backlogEnd) {
            endFault();
        }
    }
}

void CDeliveryReport::endFault()
{
    const std::string attempts = m_failures > 0 ? " after " + std::to_string(m_failures) + " failed attempts" : "";
    const std::string lost =
        m_lost > 0 ? ", " + std::to_string(m_lost) + " lost in connections the relay refused" : std::string();
    syslog(LOG_NOTICE,
           "%s: delivering to %s again%s: %llu records delivered since the fault began, %llu of them sent again "
           "(possible duplicates), %llu dropped because the queue was full%s",
           m_settings.owner.c_str(), m_settings.destination.c_str(), attempts.c_str(), m_delivered, m_sentAgain,
           m_dropped, lost.c_str());
    m_faultOpen = false;
    if (m_settings.counters != nullptr) {
        m_settings.counters->setState(std::string());
    }
    m_backlogKnown = false;
    m_failures = 0;
    m_delivered = m_sentAgain = m_dropped = m_lost = 0;
    m_dropRun = false;
}

void CDeliveryReport::refused(const std::string& answer)
{
    count(CTargetCounters::LOST, 1);
    if (m_refused++ == 0) {
        syslog(LOG_ERR, "%s: %s refused a record: \"%s\"; refused records are dropped and counted",
               m_settings.owner.c_str(), m_settings.destination.c_str(), answer.c_str());
    }
}

void CDeliveryReport::lostInRefusedConnection(unsigned long long records)
{
    if (records > 0) {
        // Counted as written when the relay's TCP acknowledged them (unsigned: the sum wraps back).
        count(CTargetCounters::WRITTEN, 0 - records);
        count(CTargetCounters::LOST, records);
        m_lost += records;
        m_delivered -= records <= m_delivered ? records : m_delivered;
    }
}

void CDeliveryReport::dropped(unsigned long long records)
{
    if (records == 0) {
        return;
    }
    count(CTargetCounters::DROPPED, records);
    if (!m_dropRun) {
        m_dropRun = true;
        syslog(LOG_WARNING, "%s: queue full (%zu records or %zu bytes): dropping new records until %s takes them",
               m_settings.owner.c_str(), m_settings.queueRecords, m_settings.queueBytes,
               m_settings.destination.c_str());
    }
    if (m_faultOpen) {
        m_dropped += records;
    } else {
        m_droppedInRun += records;
    }
}

void CDeliveryReport::queueEmpty()
{
    if (!m_faultOpen) {
        endDropRun();
    }
}

void CDeliveryReport::endDropRun()
{
    if (m_droppedInRun > 0) {
        syslog(LOG_WARNING, "%s: %llu records dropped while the queue was full", m_settings.owner.c_str(),
               m_droppedInRun);
    }
    m_droppedInRun = 0;
    m_dropRun = false;
}

void CDeliveryReport::finish(std::size_t unsent)
{
    if (m_refused > 0) {
        syslog(LOG_ERR, "%s: %s refused %llu records", m_settings.owner.c_str(), m_settings.destination.c_str(),
               m_refused);
    }
    if (m_faultOpen) {
        syslog(LOG_ERR,
               "%s: the fault of %s lasted to the end: %llu records delivered since it began, %llu of them sent "
               "again (possible duplicates), %llu dropped because the queue was full, %llu lost in connections the "
               "relay refused",
               m_settings.owner.c_str(), m_settings.destination.c_str(), m_delivered, m_sentAgain, m_dropped, m_lost);
    } else {
        endDropRun();
    }
    if (unsent > 0) {
        count(CTargetCounters::DROPPED, unsent);
        syslog(LOG_ERR, "%s: %zu records dropped at the end: %s did not take them within drain-ms=%d",
               m_settings.owner.c_str(), unsent, m_settings.destination.c_str(), m_settings.drainMs);
    }
}
