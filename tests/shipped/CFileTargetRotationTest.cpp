// The file target's own size rotation, and the real logrotate moving, compressing or truncating
// the file while threads log: every record logged is found exactly once.
#include <atomic>
#include <mutex>
#include <syslog.h>
#include <unistd.h>

#include "CFileTargetFixture.h"

namespace {

using CFileTargetRotationTest = CFileTargetFixture;

// With and without a buffer the files come out the same: a buffered write is split at a line feed
// where the file would pass max-size.
TEST_F(CFileTargetRotationTest, RotatesBySizeKeepingMaxFilesAndCountingAnExistingFile)
{
    for (const std::string buffer : {"", ", buffer=4K, flush-ms=3600000"}) {
        removeTree(m_logs);
        std::filesystem::create_directory(m_logs);
        const std::string path = logPath("a.log");
        writeFile(path, std::string(949, 'p') + "\n");  // 950 bytes: the first record no longer fits
        read(fileTarget("a.log", "pattern=%m, max-size=1K, max-files=2" + buffer));
        logRecords(0, 30);
        read("");
        EXPECT_EQ(range(20, 10), recordNumbers(linesOf(path))) << buffer;
        EXPECT_EQ(range(10, 10), recordNumbers(linesOf(path + ".1"))) << buffer;
        EXPECT_EQ(range(0, 10), recordNumbers(linesOf(path + ".2"))) << buffer;
        EXPECT_FALSE(std::filesystem::exists(path + ".3")) << buffer;
    }
}

TEST_F(CFileTargetRotationTest, AFailedRenameKeepsEveryFileAndSaysWhyOnce)
{
    const std::string path = logPath("a.log");
    writeFile(path + ".1", "one\n");
    std::filesystem::create_directories(path + ".2/in-the-way");
    read(fileTarget("a.log", "pattern=%m, max-size=1K, max-files=2"));
    logRecords(0, 30);
    EXPECT_EQ(range(0, 30), recordNumbers(linesOf(path)));
    EXPECT_EQ("one\n", readFile(path + ".1"));
    const std::string who = "file target \"file\" (" + path + ")";
    EXPECT_EQ(1, m_syslog.count(who + ": cannot rotate: renaming " + path + ".1 to " + path +
                                    ".2 failed: Is a directory; writing on to " + path,
                                LOG_ERR));

    removeTree(path + ".2");
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // rotation is retried once a second
    logRecords(30, 1);
    read("");
    EXPECT_EQ(range(30, 1), recordNumbers(linesOf(path)));
    EXPECT_EQ(range(0, 30), recordNumbers(linesOf(path + ".1")));
    EXPECT_EQ("one\n", readFile(path + ".2"));
    EXPECT_EQ(1, m_syslog.count(who + ": rotation works again", LOG_NOTICE));
}

struct CLogrotateCase {
    const char* name;
    const char* directives;    // inside the logrotate block
    const char* parameters;    // of the target
    // Logging pauses while logrotate runs where its own window would lose records: copytruncate
    // between its copy and its truncation, compress without delaycompress when it compresses the
    // moved file before the target has left it.
    bool quietWhileItRotates;
};

// Names the case in the test list, where the bytes of the structure would change with each build.
void PrintTo(const CLogrotateCase& c, std::ostream* out)
{
    *out << c.name;
}

class CLogrotateTest : public CFileTargetFixture, public ::testing::WithParamInterface<CLogrotateCase> {};

TEST_P(CLogrotateTest, FindsEveryRecordOnceAfterLogrotateRanWhileThreadsLogged)
{
    const char* logrotate = "/usr/sbin/logrotate";
    if (access(logrotate, X_OK) != 0) {
        GTEST_SKIP() << "logrotate is not installed (tools/install-deps.sh installs it)";
    }
    const std::string conf = m_dir.write(
        "logrotate.conf", logPath("app.log") + " {\n  rotate 50\n  missingok\n  " + GetParam().directives + "\n}\n");
    const std::string command = std::string(logrotate) + " -s " + m_dir.file("state") + " -f " + conf;
    read(fileTarget("app.log", std::string("pattern=%m") + GetParam().parameters));

    std::atomic<bool> stop{false};
    std::atomic<int> next{0};
    std::mutex quiet;
    auto writer = [&] {
        while (!stop) {
            {
                std::lock_guard<std::mutex> guard(quiet);
                logRecords(next++, 1);
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    };
    std::thread first(writer);
    std::thread second(writer);
    for (int run = 0; run < 3; ++run) {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        std::unique_lock<std::mutex> guard(quiet, std::defer_lock);
        if (GetParam().quietWhileItRotates) {
            guard.lock();
        }
        EXPECT_EQ(0, std::system(command.c_str())) << command;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    stop = true;
    first.join();
    second.join();
    read("");

    const std::vector<std::string> lines = linesOf(logPath("app.log*"));
    EXPECT_EQ(range(0, next), recordNumbers(lines));
    for (const std::string& line : lines) {
        // Whole records only: nothing cut, merged, or padded with NUL bytes.
        EXPECT_EQ(recordText(std::atoi(line.c_str() + 7)), line);
    }
    // Three rotations happened, and the target followed the last one.
    EXPECT_EQ(4, std::distance(std::filesystem::directory_iterator(m_logs), {}));
    EXPECT_FALSE(linesOf(logPath("app.log")).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Modes, CLogrotateTest,
    ::testing::Values(CLogrotateCase{"create", "create", "", false},
                      CLogrotateCase{"createCompress", "create\n  compress\n  delaycompress", "", false},
                      CLogrotateCase{"createCompressBuffered", "create\n  compress\n  delaycompress",
                                     ", buffer=64K, flush-ms=100", false},
                      CLogrotateCase{"createCompressAtOnce", "create\n  compress", "", true},
                      CLogrotateCase{"copytruncate", "copytruncate", "", true}),
    [](const ::testing::TestParamInfo<CLogrotateCase>& param) { return std::string(param.param.name); });

}  // namespace
