// The file target writing real files: lines, several files in one configuration, the application
// name in the path, a file removed or moved, the buffer and its thread, and fork children.
#include <unistd.h>

#include "CFileTargetFixture.h"

namespace {

using CFileTargetTest = CFileTargetFixture;

// All records to one file, warnings and worse to a second through the plug-in's alias, and one
// file per program name to a third.
TEST_F(CFileTargetTest, WritesEachRecordAsOneLineToEachFile)
{
    const mode_t savedUmask = umask(027);
    writeFile(logPath("all.log"), "kept\n");
    read(fileTarget("all.log", "pattern=%l %c %F%m, mode=0604") +
         fileTarget("errors.log", "name=errors, levels=emerg-warn, pattern=%l %m", VEXLOR_TEST_TARGET_FILE2) +
         fileTarget("%a.log", "name=by-program, pattern=%a %m", pluginLink(VEXLOR_TEST_TARGET_FILE, 1).c_str()));
    umask(savedUmask);
    log(VX_INFO, "up");
    log(VX_WARN, "slow", "poll");
    m_container.setAppname("player");
    log(VX_ERR, "link\ndown");
    read("");
    EXPECT_EQ("kept\nINFO net up\nWARN net poll: slow\nERR net link\\ndown\n", readFile(logPath("all.log")));
    EXPECT_EQ("WARN slow\nERR link\\ndown\n", readFile(logPath("errors.log")));
    // The default mode, less the umask.
    EXPECT_EQ(std::filesystem::perms(0640), std::filesystem::status(logPath("errors.log")).permissions());
    const std::string program = program_invocation_short_name;
    EXPECT_EQ(program + " up\n" + program + " slow\n", readFile(logPath(program + ".log")));
    EXPECT_EQ("player link\\ndown\n", readFile(logPath("player.log")));
}

// A removed file comes back at once; a moved one that nobody replaced, after a second (logrotate's
// create: the logrotate tests).
TEST_F(CFileTargetTest, MakesTheFileAgainAfterARemovalOrAMoveNobodyFollowedUp)
{
    const std::string path = logPath("a.log");
    read(fileTarget("a.log", "pattern=%m"));
    int next = 0;
    for (const bool moved : {false, true}) {
        ASSERT_EQ(0, moved ? std::rename(path.c_str(), logPath("a.log.1").c_str()) : std::remove(path.c_str()));
        ASSERT_TRUE(waitUntil([&] {
            logRecords(next++, 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return std::filesystem::exists(path);
        }));
    }
    logRecords(next, 1);
    read("");
    EXPECT_EQ(recordText(next), linesOf(path).back());
}

TEST_F(CFileTargetTest, BuffersUntilTheBufferFillsAnUrgentRecordComesTheTimerRunsOrItIsUnloaded)
{
    const std::string path = logPath("b.log");
    read(fileTarget("b.log", "pattern=%m, buffer=1K, flush-ms=3600000") +
         fileTarget("timed.log", "name=timed, pattern=%m, buffer=64K, flush-ms=50", VEXLOR_TEST_TARGET_FILE2));
    logRecords(0, 10);
    EXPECT_EQ("", readFile(path));
    logRecords(10, 1);  // 1100 bytes do not fit: the first ten go out
    EXPECT_EQ(range(0, 10), recordNumbers(linesOf(path)));
    log(VX_WARN, recordText(11));  // at flush-level: at once, with everything before it
    EXPECT_EQ(range(0, 12), recordNumbers(linesOf(path)));
    log(VX_NOTICE, recordText(12));
    EXPECT_EQ(range(0, 12), recordNumbers(linesOf(path)));

    // The other target's timer writes within flush-ms; then, with nothing buffered, its thread
    // sleeps until there is something to do.
    ASSERT_TRUE(waitUntil([&] { return recordNumbers(linesOf(logPath("timed.log"))).size() == 13; }));
    expectSleepsWhileIdle("vexlor-file");
    read("");
    EXPECT_EQ(range(0, 13), recordNumbers(linesOf(path)));
}

// The buffered records are the parent's: a child that ends its copy of the target must not write
// them again, and the fork must not wait for the target's thread or lock.
TEST_F(CFileTargetTest, AForkChildNeverWritesItsParentsBufferedRecords)
{
    read(fileTarget("f.log", "pattern=%m, buffer=64K, flush-ms=3600000"));
    log(VX_INFO, "parent 1");
    const bool childMayLog = childMayStartThreads();
    for (const bool childLogs : {false, childMayLog}) {
        EXPECT_EQ(0, runInChild([&] {
                      if (childLogs) {
                          log(VX_INFO, "child");
                      }
                      read("");  // the parent reads its configuration only when told
                      return 0;
                  }));
    }
    log(VX_INFO, "parent 2");
    read("");
    EXPECT_EQ(std::string(childMayLog ? "child\n" : "") + "parent 1\nparent 2\n", readFile(logPath("f.log")));
}

}  // namespace
