// The recorder's rings after real crashes, read by vexlorctl: a program logging on two threads as
// fast as it can is killed at random moments and crashes the ways programs crash; then vexlorctl's
// listing, its choice of ring, a live ring, and a corrupted one.
#include <array>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <regex>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#include "CCommand.h"
#include "CCompiledPaths.h"
#include "ringFormat.h"

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

    // vexlorctl dump; with --pattern=%T %m every line must be a whole record, without gaps
    // unless `gaps` are expected.
    static CDump dump(const std::vector<std::string>& args, bool gaps = false)
    {
        std::vector<std::string> argv{VEXLOR_TEST_VEXLORCTL, "dump"};
        argv.insert(argv.end(), args.begin(), args.end());
        const CCommandResult result = runCommand(argv);
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
                EXPECT_TRUE(gaps || out.last[thread] == 0 || out.last[thread] + 1 == n) << "a gap in t" << thread;
                out.last[thread] = n;
            }
            out.lines.push_back(line);
        }
        return out;
    }

    // Every record up to the last one whose call returned, gap-free per thread, counted exactly.
    void expectWholeSequence(pid_t pid, const std::string& how)
    {
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

    CCompiledPaths m_paths;
    CTempDir m_dir;
    const std::string m_rings = m_dir.file("rings");
    const std::string m_started = m_dir.file("started");
};

TEST_F(CRecorderCrashTest, EveryRecordSurvivesSigkillAtRandomMomentsSegvAbortAndExit)
{
    std::mt19937 random(std::random_device{}());
    const int runs = std::getenv("VEXLOR_TEST_EMULATOR") != nullptr ? 20 : 100;  // half a second per run there
    for (int i = 0; i < runs && !HasFailure(); ++i) {
        expectWholeSequence(run("kill", static_cast<int>(random() % 20000)), "kill " + std::to_string(i));
    }
    for (const char* how : {"segv", "abort", "exit"}) {  // _exit from a third thread
        expectWholeSequence(run(how), how);
    }
}

TEST_F(CRecorderCrashTest, ListsRingsAndDumpsOneByPidApplicationOrFile)
{
    const pid_t ended = run("exit");
    CChildProcess live({VEXLOR_TEST_RING_CRASH_APP, m_started, "kill"});
    ASSERT_EQ("ready", live.readLine());
    const std::string rings = runCommand({VEXLOR_TEST_VEXLORCTL, "rings", "--dir=" + m_rings}).out;
    for (const std::string& line : {std::to_string(ended) + " +crashing +ended +this ",
                                    std::to_string(live.pid()) + " +crashing +alive +this "}) {
        EXPECT_TRUE(std::regex_search(rings, std::regex("\\n" + line))) << rings;
    }
    // Read while both threads write: records may be missing at the end, never garbled.
    EXPECT_EQ(0, dump({"crashing", "--dir=" + m_rings, "--pattern=%T %m"}).status);
    kill(live.pid(), SIGKILL);
    live.finish();
    const std::string file = m_rings + "/crashing." + std::to_string(ended) + ".ring";
    const CDump last = dump({file, "--last", "3", "--pattern=%T %m"});
    EXPECT_EQ(std::make_tuple(0, 3ull, std::size_t{3}),
              std::make_tuple(last.status, last.summary[0], last.lines.size()));
    EXPECT_EQ(1, dump({"no-such-application", "--dir=" + m_rings}).status);
    EXPECT_EQ(2, dump({file, "--pattern=%q"}).status);
}

// Random bytes over a ring: vexlorctl reports what it skips and prints nothing else.
TEST_F(CRecorderCrashTest, CorruptRecordsAreSkippedAndCounted)
{
    const std::string file = m_rings + "/crashing." + std::to_string(run("exit")) + ".ring";
    const std::string intact = readFile(file);
    std::mt19937 random(std::random_device{}());
    unsigned long long skipped = 0;
    for (int round = 0; round < 20; ++round) {
        std::string bytes = intact;
        for (int span = 0; span < 4; ++span) {
            const std::size_t at = vexlor_ring::HEADER_SIZE + random() % (bytes.size() - vexlor_ring::HEADER_SIZE - 64);
            for (std::size_t i = random() % 64; i > 0; --i) {
                bytes[at + i] = static_cast<char>(random());
            }
        }
        writeFile(file, bytes);
        const CDump found = dump({file, "--pattern=%T %m"}, true);
        EXPECT_EQ(0, found.status) << found.error;
        EXPECT_EQ(found.lines.size(), found.summary[0]);
        skipped += found.summary[2];
    }
    EXPECT_GT(skipped, 0u);
    writeFile(file, std::string(vexlor_ring::HEADER_SIZE, 'x') + intact.substr(vexlor_ring::HEADER_SIZE));
    EXPECT_EQ(1, dump({file}).status);
}

// A ring written on armhf (by CRecorderTargetTest) is read the same on every machine.
TEST(RecorderRingFormat, ReadsARingWrittenOnArmhf)
{
    const CCommandResult result =
        runCommand({VEXLOR_TEST_VEXLORCTL, "dump", VEXLOR_TEST_SOURCE_DIR "/../shipped/data/recorder-armhf.ring",
                    "--last", "2", "--utc"});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("2099-01-01 00:16:38.998000 golden[4242] DEBUG net [thread 0]     poll: message 998.....\n"
              "2099-01-01 00:16:39.999000 golden[4242] ERR net [thread 1]       poll: message 999" +
                  std::string(500, '.') +
                  "\n-- 2 records printed (of 139 held), 861 overwritten before the oldest one held, 0 torn or "
                  "corrupt skipped\n",
              result.out);
}

}  // namespace
