// Calendar time without the C library's lock: the same fields as gmtime_r and localtime_r, and a
// fork child that converts while another thread of its parent held that lock does not hang.
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <thread>
#include <tuple>
#include <vector>

#include "civilTime.h"
#include "runInChild.h"

TEST(CivilTimeTest, AgreesWithTheCLibraryAcrossLeapYearsCenturiesAndDaylightSaving)
{
    // A zone with daylight saving: the cached offset must follow the switches.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    // Years 1 to 9999 (the builds use 64-bit time on every processor).
    std::vector<long long> times = {0, -1, 951782400LL, 4107542400LL, 2147483647LL};
    for (long long t = -62135596800LL; t < 253402300799LL; t += 86399LL * 37) {
        times.push_back(t);
    }
    // Around a switch to summer time (2024-03-31 01:00 UTC), minute by minute.
    for (long long t = 1711846800LL - 3600; t < 1711846800LL + 3600; t += 59) {
        times.push_back(t);
    }
    const auto fields = [](const std::tm& tm) {
        return std::make_tuple(tm.tm_year, tm.tm_mon, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, tm.tm_gmtoff);
    };
    for (bool utc : {true, false}) {
        for (long long t : times) {
            const auto when = static_cast<std::time_t>(t);
            std::tm expected{};
            std::tm got{};
            ASSERT_NE(nullptr, utc ? gmtime_r(&when, &expected) : localtime_r(&when, &expected));
            ASSERT_TRUE(vx::civilTime(t, utc, got)) << t;
            EXPECT_EQ(fields(expected), fields(got)) << t << (utc ? " UTC" : " local");
        }
    }
    std::tm parts{};
    EXPECT_FALSE(vx::civilTime(9223372036854775807LL, true, parts));
}

TEST(CivilTimeTest, ForkChildConvertsWhileTheParentsOtherThreadHeldTheLock)
{
    std::atomic<bool> stop{false};
    std::thread converter([&] {
        std::tm parts{};
        for (std::time_t now = std::time(nullptr); !stop.load(); ++now) {
            gmtime_r(&now, &parts);  // holds the C library's lock most of the time
        }
    });
    // Forked at once, while the converter runs; a child that hangs fails at runInChild's time limit.
    const auto convert = [] {
        std::tm parts{};
        return vx::civilTime(1700000000LL, true, parts) ? 0 : 1;
    };
    for (int child = 0; child < 20; ++child) {
        EXPECT_EQ(0, runInChild(convert, EForkMoment::NOW)) << "child " << child;
    }
    stop = true;
    converter.join();
}
