// The token buckets of rate= (see CRateLimit.h). Credit is kept in whole numbers: a bucket gains N
// per millisecond and a record costs the period in milliseconds (1000 or 60000), so no rounding
// drifts over a long run.
#include "CRateLimit.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "CTargetCounters.h"
#include "coarseClock.h"

namespace {

constexpr long long MAX_RATE = 1000000;

long long wholeNumber(const std::string& text)
{
    if (text.empty() || text.size() > 7 || text.find_first_not_of("0123456789") != std::string::npos) {
        return 0;
    }
    return std::stoll(text);
}

}  // namespace

CRateLimit::CRateLimit(const CLogTargetParameters& parameters)
{
    const std::string rate = targetParameter(parameters, "rate");
    const std::string burst = targetParameter(parameters, "burst");
    if (rate.empty()) {
        if (!burst.empty()) {
            throw std::invalid_argument("burst=" + burst + " needs rate=");
        }
        return;
    }
    const std::size_t slash = rate.find('/');
    const std::string unit = slash == std::string::npos ? std::string() : rate.substr(slash + 1);
    const long long count = wholeNumber(rate.substr(0, slash));
    if (count < 1 || count > MAX_RATE || (unit != "s" && unit != "m")) {
        throw std::invalid_argument("rate=" + rate + ": not records per second or minute (N/s or N/m, N from 1 to " +
                                    std::to_string(MAX_RATE) + ")");
    }
    const long long allowed = burst.empty() ? count : wholeNumber(burst);
    if (allowed < 1 || allowed > MAX_RATE) {
        throw std::invalid_argument("burst=" + burst + ": not a whole number from 1 to " + std::to_string(MAX_RATE));
    }
    m_cost = unit == "s" ? 1000 : 60000;
    m_perMs = count;
    m_capacity = allowed * m_cost;
    m_text = "rate=" + rate + ", burst=" + std::to_string(allowed);
}

bool CRateLimit::admitLimited(const std::string& component)
{
    m_nowMs = coarseMilliseconds();
    auto found = m_buckets.find(component);
    if (found == m_buckets.end()) {
        found = m_buckets.emplace(component, CBucket{m_capacity, m_nowMs}).first;
    }
    CBucket& bucket = found->second;
    // Whole milliseconds only: a bucket checked every few microseconds still fills.
    const long long elapsed = m_nowMs - bucket.updatedMs;
    if (elapsed > 0) {
        bucket.credit =
            elapsed > m_capacity / m_perMs ? m_capacity : std::min(m_capacity, bucket.credit + elapsed * m_perMs);
        bucket.updatedMs = m_nowMs;
    }
    if (bucket.credit >= m_cost) {
        bucket.credit -= m_cost;
        return true;
    }
    if (bucket.suppressed++ == 0) {
        bucket.firstMs = m_nowMs;
        ++m_pending;
    }
    bucket.lastMs = m_nowMs;
    if (m_counters != nullptr) {
        m_counters->add(CTargetCounters::SUPPRESSED);
    }
    return false;
}

std::string CRateLimit::noticeText(const CBucket& bucket) const
{
    char span[32];
    std::snprintf(span, sizeof span, "%.1f s", static_cast<double>(bucket.lastMs - bucket.firstMs) / 1000);
    return std::to_string(bucket.suppressed) + " records suppressed over " + span + " (" + m_text + ")";
}

void CRateLimit::wallClock(long long& seconds, int& microseconds)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    seconds = now.tv_sec;
    microseconds = static_cast<int>(now.tv_nsec / 1000);
}
