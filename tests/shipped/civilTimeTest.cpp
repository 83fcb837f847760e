// Calendar time without the C library's lock: the same fields as gmtime_r and localtime_r, and a
// fork child that converts while another thread of its parent held that lock does not hang.
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "civilTime.h"

namespace {

void expectSameAsLibc(long long seconds, bool utc)
{
    const auto when = static_cast<std::time_t>(seconds);
    std::tm expected{};
    ASSERT_NE(nullptr, utc ? gmtime_r(&when, &expected) : localtime_r(&when, &expected));
    std::tm got{};
    ASSERT_TRUE(vx::civilTime(seconds, utc, got)) << seconds;
    EXPECT_EQ(expected.tm_year, got.tm_year) << seconds;
    EXPECT_EQ(expected.tm_mon, got.tm_mon) << seconds;
    EXPECT_EQ(expected.tm_mday, got.tm_mday) << seconds;
    EXPECT_EQ(expected.tm_hour, got.tm_hour) << seconds;
    EXPECT_EQ(expected.tm_min, got.tm_min) << seconds;
    EXPECT_EQ(expected.tm_sec, got.tm_sec) << seconds;
    EXPECT_EQ(expected.tm_gmtoff, got.tm_gmtoff) << seconds;
}

}  // namespace

TEST(CivilTimeTest, AgreesWithTheCLibraryAcrossLeapYearsCenturiesAndDaylightSaving)
{
    // A zone with daylight saving: the cached offset must follow the switches.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    const bool wide = sizeof(std::time_t) == 8;
    for (bool utc : {true, false}) {
        for (long long seconds = wide ? -62135596800LL : -2147483647LL; seconds < (wide ? 253402300799LL : 2147483647LL);
             seconds += wide ? 86399LL * 37 : 86399LL * 3) {
            expectSameAsLibc(seconds, utc);
        }
        // Around a switch to summer time (2024-03-31 01:00 UTC), minute by minute.
        for (long long seconds = 1711846800LL - 3600; seconds < 1711846800LL + 3600; seconds += 59) {
            expectSameAsLibc(seconds, utc);
        }
        for (long long seconds : {0LL, -1LL, 951782400LL, 4107542400LL, 2147483647LL}) {
            expectSameAsLibc(seconds, utc);
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
    int hung = 0;
    for (int child = 0; child < 20; ++child) {
        const pid_t pid = fork();
        if (pid == 0) {
            std::tm parts{};
            _exit(vx::civilTime(1700000000LL, true, parts) ? 0 : 1);
        }
        int status = -1;
        int waited = 0;
        while (waitpid(pid, &status, WNOHANG) == 0 && waited < 500) {
            usleep(10000);
            ++waited;
        }
        if (waited == 500) {
            ++hung;
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
        } else {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        }
    }
    stop = true;
    converter.join();
    EXPECT_EQ(0, hung);
}
