// Calendar time without the C library's lock (see civilTime.h).
#include "civilTime.h"

#include <atomic>
#include <climits>
#include <cstdint>

namespace vx {
namespace {

constexpr long long SECONDS_PER_DAY = 86400;
constexpr int OFFSET_BITS = 20;  // offsets are within a day, far inside ±2^19 seconds
constexpr long long OFFSET_BIAS = 1LL << (OFFSET_BITS - 1);
constexpr long long CACHED_MINUTES = 1LL << 40;

// The local offset of one minute, packed as minute << 20 | offset + bias: one atomic word, so a
// reader never sees a minute with another minute's offset. All ones matches no minute. The zone
// it belongs to is stamped beside it, so that a program that changes TZ and calls tzset() gets
// the new zone's offset, as localtime_r would give it.
std::atomic<std::uint64_t> cachedOffset{~std::uint64_t{0}};
std::atomic<std::uint64_t> cachedZone{0};

// What tzset() changes for another zone: its names and its standard offset. Plain reads of the C
// library's variables, no lock.
std::uint64_t zoneStamp()
{
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(tzname[0])) ^
        static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(tzname[1])) << 1 ^
        static_cast<std::uint64_t>(timezone) << 20 ^ static_cast<std::uint64_t>(daylight);
}

long long floorDivide(long long value, long long divisor)
{
    const long long quotient = value / divisor;
    return quotient * divisor > value ? quotient - 1 : quotient;
}

bool localOffset(long long seconds, long& offset)
{
    const long long minute = floorDivide(seconds, 60);
    const bool cacheable = minute >= 0 && minute < CACHED_MINUTES;
    const std::uint64_t zone = zoneStamp();
    const std::uint64_t cached = cachedOffset.load(std::memory_order_acquire);
    if (cacheable && static_cast<long long>(cached >> OFFSET_BITS) == minute &&
        cachedZone.load(std::memory_order_relaxed) == zone) {
        offset = static_cast<long>(static_cast<long long>(cached & ((1U << OFFSET_BITS) - 1)) - OFFSET_BIAS);
        return true;
    }
    const auto when = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (static_cast<long long>(when) != seconds || localtime_r(&when, &parts) == nullptr) {
        return false;
    }
    offset = parts.tm_gmtoff;
    if (cacheable && offset > -OFFSET_BIAS && offset < OFFSET_BIAS) {
        // The stamp of the zone localtime_r just used (it may have run tzset() for the first time).
        cachedZone.store(zoneStamp(), std::memory_order_relaxed);
        cachedOffset.store(static_cast<std::uint64_t>(minute) << OFFSET_BITS |
                               static_cast<std::uint64_t>(offset + OFFSET_BIAS),
                           std::memory_order_release);
    }
    return true;
}

}  // namespace

bool civilTime(long long seconds, bool utc, std::tm& parts)
{
    long offset = 0;
    if (!utc && !localOffset(seconds, offset)) {
        return false;
    }
    if (seconds > LLONG_MAX - SECONDS_PER_DAY || seconds < LLONG_MIN + SECONDS_PER_DAY) {
        return false;
    }
    const long long local = seconds + offset;
    const long long days = floorDivide(local, SECONDS_PER_DAY);
    const long long secondOfDay = local - days * SECONDS_PER_DAY;
    // Days since 1970-01-01 to the proleptic Gregorian calendar, in 400-year eras from 0000-03-01.
    const long long shifted = days + 719468;
    const long long era = floorDivide(shifted, 146097);
    const long long dayOfEra = shifted - era * 146097;
    const long long yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const long long monthFromMarch = (5 * dayOfYear + 2) / 153;
    const long long month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    const long long year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
    if (year - 1900 > INT_MAX || year - 1900 < INT_MIN) {
        return false;
    }
    parts = std::tm{};
    parts.tm_year = static_cast<int>(year - 1900);
    parts.tm_mon = static_cast<int>(month - 1);
    parts.tm_mday = static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
    parts.tm_hour = static_cast<int>(secondOfDay / 3600);
    parts.tm_min = static_cast<int>(secondOfDay / 60 % 60);
    parts.tm_sec = static_cast<int>(secondOfDay % 60);
    parts.tm_gmtoff = offset;
    return true;
}

}  // namespace vx
