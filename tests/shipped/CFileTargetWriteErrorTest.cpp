// The file target on a small tmpfs that fills up and on a file system that turns read-only, in a
// private mount namespace: one report when the fault starts, one with the exact count when it
// ends, the same count in the file, and no line left cut and merged with the next.
#include <syslog.h>

#include "CFileTargetFixture.h"
#include "CPrivateMounts.h"

namespace {

using CFileTargetWriteErrorTest = CFileTargetFixture;

std::string started(const std::string& who, const std::string& reason)
{
    return who + ": " + reason + "; records are lost until it works again (retried once a second)";
}

void waitForTheRetry()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // a failing write is retried once a second
}

TEST_F(CFileTargetWriteErrorTest, CountsTheRecordsAFullDiskCostExactly)
{
    for (const std::string buffer : {"", ", buffer=1K, flush-ms=3600000"}) {
        CPrivateMounts mounts;
        if (!mounts.ok()) {
            GTEST_SKIP() << mounts.why();
        }
        m_syslog.clear();
        const std::string disk = m_dir.file("disk");
        std::filesystem::create_directory(disk);
        mounts.tmpfs(disk, "64k");
        writeFile(disk + "/filler", std::string(40 * 1024, 'f'));
        const std::string path = disk + "/app.log";
        read("target = " VEXLOR_TEST_TARGET_FILE ", path=" + path + ", pattern=%m" + buffer + "\n");
        const std::string who = "file target \"file\" (" + path + ")";
        const std::string reason = "write failed: No space left on device";

        int next = 0;
        while (next < 5000 && !m_syslog.contains(started(who, reason))) {
            logRecords(next++, 1);
        }
        logRecords(next, 20);  // dropped while the disk stays full
        std::filesystem::remove(disk + "/filler");
        waitForTheRetry();
        logRecords(next + 20, 10);
        next += 30;
        read("");

        // Whole records, the record the disk filled up in cut and ended, and one notice of the loss.
        const std::string notice = "vexlor: " + who + ": ";
        unsigned long long lost = 0;
        for (const std::string& line : linesOf(path)) {
            const std::string whole = recordText(std::atoi(line.c_str() + 7));
            if (line.rfind(notice, 0) == 0) {
                EXPECT_EQ(0u, lost) << "a second notice";
                lost = std::stoull(line.substr(notice.size()));
                EXPECT_EQ(notice + std::to_string(lost) + " records lost (" + reason + ")", line);
            } else if (line != whole) {
                EXPECT_EQ(line.substr(0, line.size() - 6) + " [cut]", line);
                EXPECT_EQ(0u, whole.rfind(line.substr(0, line.size() - 6), 0)) << line;
            }
        }
        const std::vector<int> found = recordNumbers(linesOf(path));
        EXPECT_EQ(static_cast<std::size_t>(next), found.size() + lost) << buffer;
        ASSERT_GE(found.size(), 10u);
        EXPECT_EQ(range(next - 10, 10), std::vector<int>(found.end() - 10, found.end())) << buffer;
        EXPECT_EQ(1, m_syslog.count(started(who, reason), LOG_ERR)) << buffer;
        EXPECT_EQ(1, m_syslog.count(who + ": works again; " + std::to_string(lost) + " records were lost (" + reason + ")",
                                    LOG_WARNING))
            << buffer;
        mounts.unmount(disk);
        removeTree(disk);
    }
}

// The open file keeps taking records on a file system that turned read-only; once it is removed,
// the path cannot be made again and the records are counted until it can.
TEST_F(CFileTargetWriteErrorTest, CountsTheRecordsLostWhileTheFileCannotBeMadeAgain)
{
    CPrivateMounts mounts;
    if (!mounts.ok()) {
        GTEST_SKIP() << mounts.why();
    }
    const std::string disk = m_dir.file("disk");
    const std::string writable = m_dir.file("writable");
    std::filesystem::create_directory(disk);
    std::filesystem::create_directory(writable);
    mounts.tmpfs(disk, "1m");
    mounts.bind(disk, writable);  // a writable view of the same files, for the test's own changes
    const std::string path = disk + "/app.log";
    const std::string target = "target = " VEXLOR_TEST_TARGET_FILE ", path=" + path + ", pattern=%m\n";
    read(target);
    logRecords(0, 3);

    mounts.bind(disk, disk);
    mounts.makeReadOnly(disk);
    logRecords(3, 2);
    EXPECT_EQ(range(0, 5), recordNumbers(linesOf(path)));
    read(target + "target = " VEXLOR_TEST_TARGET_FILE2 ", name=other, path=" + disk + "/other.log\n");
    EXPECT_TRUE(m_syslog.contains("file target \"other\": path=" + disk + "/other.log: cannot open: Read-only file system",
                                  LOG_ERR));

    ASSERT_EQ(0, std::remove((writable + "/app.log").c_str()));
    waitForTheRetry();  // the once-a-second check, at the latest, sees the removal before the next write
    logRecords(5, 7);
    const std::string who = "file target \"file\" (" + path + ")";
    const std::string reason = "reopen failed: Read-only file system";
    EXPECT_EQ(1, m_syslog.count(started(who, reason), LOG_ERR));

    mounts.unmount(disk);  // the read-only view goes
    waitForTheRetry();
    logRecords(12, 3);
    read("");
    EXPECT_EQ((std::vector<std::string>{"vexlor: " + who + ": 7 records lost (" + reason + ")", recordText(12),
                                        recordText(13), recordText(14)}),
              linesOf(path));
    EXPECT_EQ(1, m_syslog.count(who + ": works again; 7 records were lost (" + reason + ")", LOG_WARNING));
}

}  // namespace
