// The recorder's rings after real crashes, read by vexlorctl: a program logging on two threads as
// fast as it can is killed at random moments and crashes the ways programs crash; then vexlorctl's
// listing, its choice of ring, a live ring, and a ring written on another architecture.
#include <array>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <regex>
#include <sstream>
#include <unistd.h>

#include "CCompiledPaths.h"
#include "vexlorctl.h"

namespace {

struct CDump {
    int status = -1;
    std::string error;
    std::vector<std::string> lines;  // the records
    std::array<unsigned long long, 3> summary{};  // printed, overwritten, skipped
    int last[2] = {};  // per thread: the last number printed
};

class CRecorderCrashTest : public ::testing::Test {
protected:
    CRecorderCrashTest()
    {
        m_paths.writeDefaultConfig("target = " VEXLOR_TEST_TARGET_RECORDER ", dir=" + m_rings +
                                   ", size=16K\ncomponent = net, 011111111\n");
    }

    // The program until it ends as `how` says; for "kill", `delay` microseconds after "ready".
    pid_t run(const std::string& how, int delay = 0)
    {
        writeFile(m_started, std::string(2 * sizeof(int), '\0'));
        CChildProcess app({VEXLOR_TEST_RING_CRASH_APP, m_started, how});
        EXPECT_EQ("ready", app.readLine());
        if (how == "kill") {
            usleep(static_cast<useconds_t>(delay));
            kill(app.pid(), SIGKILL);
        }
        app.finish();
        return app.pid();
    }

    // vexlorctl dump; with --pattern=%T %m every line must be a whole record, without gaps.
    static CDump dump(std::vector<std::string> args)
    {
        args.insert(args.begin(), "dump");
        const CCommandResult result = vexlorctl(args);
        CDump out{result.status, result.err, {}, {}, {}};
        static const std::regex summary("-- (\\d+) records printed( \\(of \\d+ held\\))?, (\\d+) overwritten before "
                                        "the oldest one held, (\\d+) torn or corrupt skipped.*");
        std::istringstream text(result.out);
        std::smatch match;
        for (std::string line; std::getline(text, line);) {
            if (std::regex_match(line, match, summary)) {
                out.summary = {std::stoull(match[1]), std::stoull(match[3]), std::stoull(match[4])};
                continue;
            }
            int thread = -1;
            int n = 0;
            std::sscanf(line.c_str(), "t%d %d", &thread, &n);
            EXPECT_EQ("t" + std::to_string(thread) + " " + std::to_string(n), line) << "garbled";
            if (thread == 0 || thread == 1) {
                EXPECT_TRUE(out.last[thread] == 0 || out.last[thread] + 1 == n) << "a gap in t" << thread;
                out.last[thread] = n;
            }
            out.lines.push_back(line);
        }
        return out;
    }

    CCompiledPaths m_paths;
    CTempDir m_dir;
    const std::string m_rings = m_dir.file("rings");
    const std::string m_started = m_dir.file("started");
};

// Every time, the ring holds every record up to the last one whose call returned, gap-free per
// thread, and the counts are exact.
TEST_F(CRecorderCrashTest, EveryRecordSurvivesSigkillAtRandomMomentsSegvAbortAndExit)
{
    std::mt19937 random(std::random_device{}());
    // Half a second per run under an emulator; "exit": _exit from a third thread.
    std::vector<std::string> hows(std::getenv("VEXLOR_TEST_EMULATOR") != nullptr ? 20 : 100, "kill");
    hows.insert(hows.end(), {"segv", "abort", "exit"});
    for (std::size_t i = 0; i < hows.size() && !HasFailure(); ++i) {
        const pid_t pid = run(hows[i], static_cast<int>(random() % 20000));
        const std::string how = hows[i] + " " + std::to_string(i);
        const CDump found = dump({std::to_string(pid), "--dir=" + m_rings, "--pattern=%T %m"});
        ASSERT_EQ(0, found.status) << how << ": " << found.error;
        int started[2];
        std::memcpy(started, readFile(m_started).data(), sizeof started);
        const unsigned long long highest = found.summary[0] + found.summary[1] + found.summary[2];
        const long long rest = static_cast<long long>(highest) - found.last[0] - found.last[1];
        for (int t = 0; t < 2; ++t) {
            // A thread without a record among those held (the other one held the lock) adds the rest.
            const int last = found.last[t] != 0 ? found.last[t] : static_cast<int>(rest);
            EXPECT_TRUE(last == started[t] || last == started[t] - 1)
                << how << " t" << t << ": " << last << " of " << started[t];
        }
        EXPECT_EQ(std::make_tuple(found.lines.size(), 0ull, true),
                  std::make_tuple(found.summary[0], found.summary[2], rest == 0 || !found.last[0] || !found.last[1]))
            << how;
    }
}

// Read while both threads write, a live ring may lack records at the end, never hold a garbled one.
// A ring written on armhf (by CRecorderTargetTest) reads the same on every machine.
TEST_F(CRecorderCrashTest, ListsAndDumpsRingsEndedLiveAndWrittenOnArmhf)
{
    const pid_t ended = run("exit");
    CChildProcess live({VEXLOR_TEST_RING_CRASH_APP, m_started, "kill"});
    ASSERT_EQ("ready", live.readLine());
    const std::string rings = vexlorctl({"rings", "--dir=" + m_rings}).out;
    for (const std::string& line : {std::to_string(ended) + " +crashing +ended +this ",
                                    std::to_string(live.pid()) + " +crashing +alive +this "}) {
        EXPECT_TRUE(std::regex_search(rings, std::regex("\\n" + line))) << rings;
    }
    EXPECT_EQ(0, dump({"crashing", "--dir=" + m_rings, "--pattern=%T %m"}).status);
    kill(live.pid(), SIGKILL);
    live.finish();
    EXPECT_EQ(1, dump({"no-such-application", "--dir=" + m_rings}).status);
    EXPECT_EQ(2, dump({"crashing", "--dir=" + m_rings, "--pattern=%q"}).status);

    const CCommandResult armhf =
        vexlorctl({"dump", VEXLOR_TEST_SOURCE_DIR "/../shipped/data/recorder-armhf.ring", "--last", "2", "--utc"});
    EXPECT_EQ(0, armhf.status) << armhf.err;
    EXPECT_EQ("2099-01-01 00:16:38.998000 golden[4242] DEBUG net [thread 0]     poll: message 998.....\n"
              "2099-01-01 00:16:39.999000 golden[4242] ERR net [thread 1]       poll: message 999" +
                  std::string(500, '.') +
                  "\n-- 2 records printed (of 139 held), 861 overwritten before the oldest one held, 0 torn or "
                  "corrupt skipped\n",
              armhf.out);
}

}  // namespace
