// One fault of a target (a full disk, a closed pipe, a read-only file system): reported to syslog
// once when it starts and once when it ends, with the exact number of records it cost; never once
// per record. While it lasts, a new attempt is due about once a second, or with every record where
// a failing attempt costs no more than a succeeding one.
#pragma once

#include <string>

class CTargetCounters;

class CFaultReport {
public:
    static constexpr long long RETRY_MS = 1000;
    enum class ERetry { ONCE_A_SECOND, EVERY_RECORD };

    // `who` opens every message, e.g. `file target "file" (/var/log/app.log)`.
    explicit CFaultReport(std::string who, ERetry retry = ERetry::ONCE_A_SECOND)
        : m_who(std::move(who))
        , m_retry(retry)
    {
    }
    // A fault still open is reported with its count.
    ~CFaultReport();
    CFaultReport(const CFaultReport&) = delete;
    CFaultReport& operator=(const CFaultReport&) = delete;

    void setWho(std::string who) { m_who = std::move(who); }
    // Lost records and the fault's reason go into `counters` as well from now on.
    void countInto(CTargetCounters& counters) { m_counters = &counters; }
    bool failing() const { return m_failing; }
    unsigned long long lostRecords() const { return m_lost; }
    // True while no fault is open, and while one is: about once a second, or always (EVERY_RECORD).
    bool retryDue() const;

    // An attempt failed with `error` (errno) and lost `records`: `what` says what was tried
    // ("write", "reopen"). The first failure opens the fault and reports it.
    void failed(const char* what, int error, unsigned long long records);
    // The same with the reason in words ("is a FIFO, not a regular file").
    void failed(const char* what, const std::string& why, unsigned long long records);
    // Records dropped without an attempt while the fault lasts.
    void lost(unsigned long long records);
    // Delivery works again: reports the end of an open fault and returns how many records it
    // cost (0 when none was open); the count starts again from 0.
    unsigned long long recovered();
    // What failed and why, as the fault started: "write failed: No space left on device".
    const std::string& reason() const { return m_reason; }

private:
    std::string m_who;
    const ERetry m_retry;
    CTargetCounters* m_counters = nullptr;
    bool m_failing = false;
    std::string m_reason;
    unsigned long long m_lost = 0;
    long long m_lastAttemptMs = 0;
};
