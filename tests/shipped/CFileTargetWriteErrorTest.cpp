// The file target on a small tmpfs that fills up, in a private mount namespace: one report when
// a fault starts and one with the exact count when it ends, the same count in the file, the next
// record after space came back written, the count of a fault still open at unload in the file
// too, no line left cut and merged with the next, and the same counts in vexlorctl stats.
#include <syslog.h>

#include "CFileTargetFixture.h"
#include "CPrivateMounts.h"

namespace {

using CFileTargetWriteErrorTest = CFileTargetFixture;

TEST_F(CFileTargetWriteErrorTest, CountsTheRecordsAFullDiskCostExactlyInTheFileAndInSyslog)
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
        read("target = " VEXLOR_TEST_TARGET_FILE ", path=" + path + ", pattern=%m" + buffer + "\n" + CONTROL_LINE);
        const std::string who = "file target \"file\" (" + path + ")";
        const std::string reason = "write failed: No space left on device";
        const std::string started = who + ": " + reason + "; records are lost until it works again";

        // Two faults: space comes back before the next record in the first, only at unload in the second.
        int next = 0;
        int afterFirst = 0;
        for (const std::string filler : {"/filler", "/filler2"}) {
            while (next < 5000 && m_syslog.countStarting(started, LOG_ERR) < (filler == "/filler" ? 1 : 2)) {
                logRecords(next++, 1);
            }
            logRecords(next, 20);  // dropped while the disk stays full
            next += 20;
            std::filesystem::remove(disk + filler);
            if (filler == "/filler") {
                afterFirst = next;
                logRecords(next, 10);  // written at once
                next += 10;
                EXPECT_THROW(writeFile(disk + "/filler2", std::string(64 * 1024, 'f')), std::runtime_error);
            }
        }
        const CCounters counted = statsOf("file");
        read("");

        // Whole records, the records the disk filled up in cut and ended, and one notice per fault.
        const std::string notice = "vexlor: " + who + ": ";
        std::vector<unsigned long long> lost;
        for (const std::string& line : linesOf(path)) {
            const std::string whole = recordText(std::atoi(line.c_str() + 7));
            if (line.rfind(notice, 0) == 0) {
                lost.push_back(std::stoull(line.substr(notice.size())));
                EXPECT_EQ(notice + std::to_string(lost.back()) + " records lost (" + reason + ")", line);
            } else if (line != whole) {
                EXPECT_EQ(line.substr(0, line.size() - 6) + " [cut]", line);
                EXPECT_EQ(0u, whole.rfind(line.substr(0, line.size() - 6), 0)) << line;
            }
        }
        ASSERT_EQ(2u, lost.size()) << buffer;
        const std::vector<int> found = recordNumbers(linesOf(path));
        EXPECT_EQ(static_cast<std::size_t>(next), found.size() + lost[0] + lost[1]) << buffer;
        if (buffer.empty()) {
            // Only what was logged while the disk was full: the record that filled it and 20 more.
            EXPECT_EQ(std::vector<unsigned long long>({21, 21}), lost);
            // What vexlorctl stats says before the unload: nothing was waiting in a buffer.
            CCounters expected{{"dropped", 0}, {"lost", 42}, {"suppressed", 0}, {"rotations", 0}, {"reopens", 0}};
            expected["written"] = found.size();
            EXPECT_EQ(expected, counted);
            const std::vector<int> afterwards = range(afterFirst, 10);
            EXPECT_TRUE(std::includes(found.begin(), found.end(), afterwards.begin(), afterwards.end()));
        }
        EXPECT_EQ(2, m_syslog.countStarting(started, LOG_ERR)) << buffer;
        for (const unsigned long long count : lost) {
            const std::string ended = who + ": works again; " + std::to_string(count) + " records were lost (";
            EXPECT_EQ(std::count(lost.begin(), lost.end(), count), m_syslog.countStarting(ended, LOG_WARNING));
        }
    }
}

}  // namespace
