// The file target's own size rotation, by one process or two at once, and the real logrotate
// moving and compressing or truncating the file while threads log: every record logged is found
// exactly once. (scripts/install-deps.sh installs logrotate.)
#include <atomic>
#include <mutex>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "CFileTargetFixture.h"

namespace {

class CFileTargetRotationTest : public CFileTargetFixture {
protected:
    // Logging pauses while logrotate runs where its own window would lose records (copytruncate
    // between its copy and its truncation).
    void rotateWhileThreadsLog(const std::string& directives, bool quietWhileItRotates)
    {
        const std::string conf = m_dir.write(
            "logrotate.conf", logPath("app.log") + " {\n  rotate 50\n  missingok\n  " + directives + "\n}\n");
        const std::string command = "/usr/sbin/logrotate -s " + m_dir.file("state") + " -f " + conf;
        read(fileTarget("app.log", "pattern=%m"));
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
            if (quietWhileItRotates) {
                guard.lock();
            }
            EXPECT_EQ(0, std::system(command.c_str())) << command;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        stop = true;
        first.join();
        second.join();
        read("");

        // Every record once and whole: nothing cut, merged, or padded with NUL bytes.
        const std::vector<std::string> lines = linesOf(logPath("app.log*"));
        EXPECT_EQ(range(0, next), recordNumbers(lines));
        EXPECT_EQ(static_cast<std::size_t>(next.load()), lines.size());
        // Three rotations happened, and the target followed the last one.
        EXPECT_EQ(4, std::distance(std::filesystem::directory_iterator(m_logs), {}));
        EXPECT_FALSE(linesOf(logPath("app.log")).empty());
    }
};

// With and without a buffer the files come out the same: a buffered write is split at a line feed
// where the file would pass max-size.
TEST_F(CFileTargetRotationTest, RotatesBySizeKeepingMaxFilesAndCountingAnExistingFile)
{
    for (const std::string buffer : {"", ", buffer=4K, flush-ms=3600000"}) {
        const std::string file = buffer.empty() ? "a.log" : "b.log";
        const std::string path = logPath(file);
        writeFile(path, std::string(949, 'p') + "\n");  // 950 bytes: the first record no longer fits
        read(fileTarget(file, "pattern=%m, max-size=1K, max-files=2" + buffer));
        logRecords(0, 30);
        read("");
        EXPECT_EQ(range(20, 10), recordNumbers(linesOf(path))) << buffer;
        EXPECT_EQ(range(10, 10), recordNumbers(linesOf(path + ".1"))) << buffer;
        EXPECT_EQ(range(0, 10), recordNumbers(linesOf(path + ".2"))) << buffer;
        EXPECT_FALSE(std::filesystem::exists(path + ".3")) << buffer;
    }
}

// Two processes append to one file and both rotate it by size: every record of both is found
// once, none overwritten with a rotated file.
TEST_F(CFileTargetRotationTest, TwoProcessesRotatingOneFileLoseNothing)
{
    for (const std::string buffer : {"", ", buffer=4K, flush-ms=3600000"}) {
        const std::string file = buffer.empty() ? "a.log" : "b.log";
        m_dir.write("vexlor.cfg", fileTarget(file, "pattern=%m, max-size=16K, max-files=999" + buffer));
        int start[2];
        ASSERT_EQ(0, pipe(start));
        pid_t children[2];
        for (int child = 0; child < 2; ++child) {
            if ((children[child] = forkWhenOthersSleep()) == 0) {
                {
                    CLogTargetContainer container{m_dir.path(), false, nullptr};
                    container.onCfgUpdate();
                    close(start[1]);
                    (void)!::read(start[0], start, 1);  // both begin together: at the pipe's end
                    for (int n = child * 10000; n < (child + 1) * 10000; ++n) {
                        container.log(42, 0, SECONDS, 7, VX_INFO, "main", "net", "", recordText(n));
                    }
                }  // unloaded: a buffer is written
                _exit(0);
            }
        }
        close(start[0]);
        close(start[1]);
        EXPECT_EQ(0, reapChild(children[0], std::chrono::seconds(20)));  // a clean exit
        EXPECT_EQ(0, reapChild(children[1], std::chrono::seconds(20)));
        const std::vector<std::string> lines = linesOf(logPath(file + "*"));
        EXPECT_EQ(range(0, 20000), recordNumbers(lines)) << buffer;
        EXPECT_EQ(20000u, lines.size()) << buffer;
    }
}

// A process that holds the lock and never rotates (stuck, or a user who may read the file) keeps
// the others from rotating for a second only.
TEST_F(CFileTargetRotationTest, RotatesWithoutTheLockWhenItIsHeldForOverASecond)
{
    read(fileTarget("r.log", "pattern=%m, max-size=1K"));
    const int holder = ::open(logPath("r.log").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(holder, LOCK_EX));
    logRecords(0, 15);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    logRecords(15, 1);
    close(holder);
    read("");
    EXPECT_EQ(range(0, 15), recordNumbers(linesOf(logPath("r.log.1"))));  // none rotated in the first second
    EXPECT_EQ(1, m_syslog.countContaining("held the rotation lock for over a second; rotating without it"));
}

TEST_F(CFileTargetRotationTest, FollowsLogrotateCreateWithDelayedCompression)
{
    rotateWhileThreadsLog("create\n  compress\n  delaycompress", false);
}

TEST_F(CFileTargetRotationTest, FollowsLogrotateCopytruncate) { rotateWhileThreadsLog("copytruncate", true); }

}  // namespace
