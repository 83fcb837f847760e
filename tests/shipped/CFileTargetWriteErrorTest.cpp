// The file target on a small tmpfs that fills up, in a private mount namespace: one report when
// the fault starts, one with the exact count when it ends, the same count in the file, and no line
// left cut and merged with the next.
#include <syslog.h>

#include "CFileTargetFixture.h"
#include "CPrivateMounts.h"

namespace {

using CFileTargetWriteErrorTest = CFileTargetFixture;

TEST_F(CFileTargetWriteErrorTest, CountsTheRecordsAFullDiskCostExactly)
{
    for (const std::string buffer : {"", ", buffer=1K, flush-ms=3600000"}) {
        CPrivateMounts mounts;
        if (!mounts.ok()) {
            GTEST_SKIP() << mounts.why();
        }
        m_syslog.clear();
        const std::string disk = m_dir.file(buffer.empty() ? "disk" : "buffered");
        std::filesystem::create_directory(disk);
        mounts.tmpfs(disk, "64k");
        writeFile(disk + "/filler", std::string(40 * 1024, 'f'));
        const std::string path = disk + "/app.log";
        read("target = " VEXLOR_TEST_TARGET_FILE ", path=" + path + ", pattern=%m" + buffer + "\n");
        const std::string who = "file target \"file\" (" + path + ")";
        const std::string reason = "write failed: No space left on device";
        const std::string started =
            who + ": " + reason + "; records are lost until it works again (retried once a second)";

        int next = 0;
        while (next < 5000 && !m_syslog.contains(started)) {
            logRecords(next++, 1);
        }
        logRecords(next, 20);  // dropped while the disk stays full
        std::filesystem::remove(disk + "/filler");
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // a failing write is retried once a second
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
        EXPECT_EQ(1, m_syslog.count(started, LOG_ERR)) << buffer;
        EXPECT_EQ(1,
                  m_syslog.count(who + ": works again; " + std::to_string(lost) + " records were lost (" + reason + ")",
                                 LOG_WARNING))
            << buffer;
    }
}

}  // namespace
