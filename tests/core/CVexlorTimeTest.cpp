// Record times after 2038: a record's seconds are 64-bit on every platform we build for, 32-bit
// ARM included. The test executable supplies gettimeofday, so the library reads a chosen time
// without the machine's clock being touched.
#include <gtest/gtest.h>
#include <atomic>
#include <ctime>
#include <sys/time.h>
#include <utility>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "testPaths.h"

static_assert(sizeof(time_t) == 8, "32-bit processors need _TIME_BITS=64 (see cmake/toolchains)");

namespace {

// The time gettimeofday reports while g_fixed is set; the real clock otherwise.
std::atomic<bool> g_fixed{false};
std::atomic<long long> g_fixedSeconds{0};
std::atomic<int> g_fixedMicroseconds{0};

// Scoped: the clock reads `seconds`.`microseconds` until the end of the scope.
class CFixedClock {
public:
    CFixedClock(long long seconds, int microseconds)
    {
        g_fixedSeconds = seconds;
        g_fixedMicroseconds = microseconds;
        g_fixed = true;
    }
    ~CFixedClock() { g_fixed = false; }
    CFixedClock(const CFixedClock&) = delete;
    CFixedClock& operator=(const CFixedClock&) = delete;
};

}  // namespace

// With 64-bit time on a 32-bit processor the C library's header gives this definition the name of
// the 64-bit entry point (__gettimeofday64), which is the one the library calls.
extern "C" int gettimeofday(timeval* __restrict tv, void* __restrict /*tz*/) noexcept
{
    if (g_fixed) {
        tv->tv_sec = static_cast<time_t>(g_fixedSeconds.load());
        tv->tv_usec = g_fixedMicroseconds;
        return 0;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tv->tv_sec = now.tv_sec;
    tv->tv_usec = now.tv_nsec / 1000;
    return 0;
}

namespace {

TEST(CVexlorTimeTest, DeliversSecondsAfter2038Intact)
{
    CCompiledPaths paths;
    paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec"));
    vexlor_component* clock = vexlor_create_component("clock", VX_INFO, "");

    // Past the signed 32-bit limit (2038-01-19 03:14:08 UTC), 2100-01-01, and past the unsigned
    // 32-bit limit (9999-12-31 23:59:59).
    const std::pair<long long, int> times[] = {{2147483648LL, 0}, {4102444800LL, 999999}, {253402300799LL, 1}};
    for (const auto& time : times) {
        CFixedClock fixed(time.first, time.second);
        vexlor(clock, VX_INFO, "tick");
    }

    const auto logs = CRecorder::instance().calls("log", "rec");
    ASSERT_EQ(3u, logs.size());
    for (std::size_t i = 0; i < logs.size(); ++i) {
        EXPECT_EQ(times[i].first, logs[i].seconds);
        EXPECT_EQ(times[i].second, logs[i].microseconds);
    }
}

}  // namespace
