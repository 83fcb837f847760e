// One fault of a target (a full disk, a closed pipe, a read-only file system): reported to syslog
// once when it starts and once when it ends, with the exact number of records it cost; never once
// per record. While it lasts, a new attempt is due about once a second.
#pragma once

#include <string>

class CFaultReport {
public:
    static constexpr long long RETRY_MS = 1000;

    // `who` opens every message, e.g. `file target "file" (/var/log/app.log)`.
    explicit CFaultReport(std::string who)
        : m_who(std::move(who))
    {
    }
    // A fault still open is reported with its count.
    ~CFaultReport();
    CFaultReport(const CFaultReport&) = delete;
    CFaultReport& operator=(const CFaultReport&) = delete;

    void setWho(std::string who) { m_who = std::move(who); }
    bool failing() const { return m_failing; }
    unsigned long long lostRecords() const { return m_lost; }
    // True while no fault is open, and about once a second while one is.
    bool retryDue() const;

    // An attempt failed with `error` (errno) and lost `records`: `what` says what was tried
    // ("write", "reopen"). The first failure opens the fault and reports it.
    void failed(const char* what, int error, unsigned long long records);
    // Records dropped without an attempt while the fault lasts.
    void lost(unsigned long long records) { m_lost += records; }
    // Delivery works again: reports the end of an open fault and returns how many records it
    // cost (0 when none was open); the count starts again from 0.
    unsigned long long recovered();
    // The text of the error that opened the fault.
    std::string reason() const;

private:
    std::string m_who;
    bool m_failing = false;
    std::string m_what;
    int m_error = 0;
    unsigned long long m_lost = 0;
    long long m_lastAttemptMs = 0;
};
