// rate= and burst= of the shipped targets: at most N records a second (rate=N/s) or a minute
// (rate=N/m) per component, with bursts of up to burst= records (default N), as a token bucket
// per component. A target asks before it formats anything, so a suppressed record costs the
// check only. Suppressed records are counted; the target writes one notice of its own per
// component (which component, how many, over what time) when records pass again, at most once a
// second, and at unload. Off by default.
//
// Calls come from the target's log, which the library serialises: no lock here.
#pragma once

#include <string>
#include <unistd.h>
#include <unordered_map>
#include <vector>

#include <vexlor/vexlor.h>
#include <vexlor/vexlor_target.h>

class CTargetCounters;

class CRateLimit {
public:
    // Reads rate= and burst=; throws std::invalid_argument for a bad value. Counts into `counters`.
    CRateLimit(const CLogTargetParameters& parameters, CTargetCounters& counters)
        : CRateLimit(parameters)
    {
        countInto(counters);
    }
    // The same for a target whose counters come to be after its parameters were read.
    explicit CRateLimit(const CLogTargetParameters& parameters);
    void countInto(CTargetCounters& counters) { m_counters = &counters; }

    // True when a record of `component` may pass now, after the notices that are due went out
    // through the target's write (see writeNotices); false when it is suppressed (and counted).
    template <typename Target>
    bool admit(const std::string& component, Target& target, int pid, long long seconds, int microseconds,
               const std::string& threadName)
    {
        if (m_cost == 0) {
            return true;
        }
        if (!admitLimited(component)) {
            return false;
        }
        if (m_pending != 0 && m_nowMs >= m_nextNoticeMs) {
            writeNotices(target, pid, seconds, microseconds, threadName);
        }
        return true;
    }
    // Writes the notice of each component with suppressed records through `target.write`, which
    // takes what log takes (a friend's private member), as a warning of that component: with the
    // time of the record that passed, or at unload (seconds < 0: now).
    template <typename Target>
    void writeNotices(Target& target, int pid, long long seconds, int microseconds, const std::string& threadName)
    {
        if (m_pending == 0) {
            return;
        }
        if (seconds < 0) {
            wallClock(seconds, microseconds);
        }
        for (auto& [component, bucket] : m_buckets) {
            if (bucket.suppressed != 0) {
                target.write(pid, 0, seconds, microseconds, VX_WARN, threadName, component, std::string(),
                             noticeText(bucket));
                bucket.suppressed = 0;
            }
        }
        m_pending = 0;
        m_nextNoticeMs = m_nowMs + NOTICE_MS;
    }
    // At unload.
    template <typename Target>
    void writeNotices(Target& target)
    {
        writeNotices(target, getpid(), -1, 0, std::string());
    }

    static constexpr long long NOTICE_MS = 1000;

private:
    struct CBucket {
        long long credit;  // tokens times m_cost's period in milliseconds
        long long updatedMs;
        unsigned long long suppressed = 0;  // since the last notice
        long long firstMs = 0;  // the first and the last suppressed record since then
        long long lastMs = 0;
    };

    bool admitLimited(const std::string& component);
    static void wallClock(long long& seconds, int& microseconds);
    std::string noticeText(const CBucket& bucket) const;

    CTargetCounters* m_counters = nullptr;
    std::string m_text;  // "rate=100/s, burst=100"
    long long m_cost = 0;  // one record's credit: the period in ms (0: off)
    long long m_perMs = 0;  // credit gained per millisecond: N
    long long m_capacity = 0;  // burst times m_cost
    std::unordered_map<std::string, CBucket> m_buckets;
    std::size_t m_pending = 0;  // buckets with suppressed records
    long long m_nowMs = 0;  // of the last check
    long long m_nextNoticeMs = 0;
};
