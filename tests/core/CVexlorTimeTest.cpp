// Record times after 2038: a record's seconds are 64-bit on every platform we build for, 32-bit
// ARM included. The test executable supplies gettimeofday, so the library reads a chosen time
// without the machine's clock being touched.
#include <gtest/gtest.h>
#include <atomic>
#include <ctime>
#include <sys/time.h>
#include <utility>
#include <vector>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "testPaths.h"

static_assert(sizeof(time_t) == 8, "32-bit processors need _TIME_BITS=64 (see cmake/toolchains)");

namespace {

// While not negative, the time gettimeofday reports; the real clock otherwise.
std::atomic<long long> fixedSeconds{-1};
std::atomic<int> fixedMicroseconds{0};

}  // namespace

// With 64-bit time on a 32-bit processor the C library's header gives this definition the name of
// the 64-bit entry point (__gettimeofday64), which is the one the library calls.
extern "C" int gettimeofday(timeval* __restrict tv, void* __restrict /*tz*/) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const long long seconds = fixedSeconds;
    tv->tv_sec = seconds >= 0 ? static_cast<time_t>(seconds) : now.tv_sec;
    tv->tv_usec = seconds >= 0 ? fixedMicroseconds.load() : now.tv_nsec / 1000;
    return 0;
}

TEST(CVexlorTimeTest, DeliversSecondsAfter2038Intact)
{
    CCompiledPaths paths;
    paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec"));
    vexlor_component* clock = vexlor_create_component("clock", VX_INFO, "");

    // Past the signed 32-bit limit (2038-01-19 03:14:08 UTC), 2100-01-01, and past the unsigned
    // 32-bit limit (9999-12-31 23:59:59).
    const std::vector<std::pair<long long, int>> times{{2147483648LL, 0}, {4102444800LL, 999999}, {253402300799LL, 1}};
    for (const auto& [seconds, microseconds] : times) {
        fixedMicroseconds = microseconds;
        fixedSeconds = seconds;
        vexlor(clock, VX_INFO, "tick");
    }
    fixedSeconds = -1;

    std::vector<std::pair<long long, int>> logged;
    for (const CRecordedCall& record : CRecorder::instance().calls("log", "rec")) {
        logged.emplace_back(record.seconds, record.microseconds);
    }
    EXPECT_EQ(times, logged);
}
