// The legacy level file: the program's entry sets the syslog mask at the first vexlor_init (a
// default entry is appended when there is none), the start-up message, and the SIGUSR1 re-read.
#include <csignal>
#include <cstdlib>
#include <string>
#include <syslog.h>

#include "CMainInstanceTest.h"
#include "runInChild.h"

namespace {

const std::string program = program_invocation_short_name;

std::string reread(int level) { return "[loglevel for " + program + " set to " + std::to_string(level) + "]"; }

void writeLevels(const std::string& content) { writeFile(testpaths::legacyLevelFile(), content); }

using LegacyLevelTest = CMainInstanceTest;

// The first line that contains the program name anywhere sets the mask. A negative level and a
// missing file count as no entry: the default line is appended. Only the first init of the
// process reads the file; the level is announced only while the syslogd pid file is readable.
TEST_F(LegacyLevelTest, FirstLineContainingTheProgramNameSetsTheMask)
{
    struct CRow {
        bool present;  // the level file and the pid file
        std::string before, appended;
        int level;
    };
    const CRow rows[] = {{true, "x" + program + "y 3\n" + program + " 5\n", "", 3},
                         {true, program + " -4\nother 3\n", program + " 7\n", 7},
                         {false, "", program + " 7\n", 7}};
    for (const CRow& row : rows) {
        SCOPED_TRACE(row.before);
        EXPECT_EQ(0, runInChild([&] {
                      removeTree(testpaths::legacyLevelFile());
                      removeTree(testpaths::syslogdPidFile());
                      if (row.present) {
                          writeLevels(row.before);
                          writeFile(testpaths::syslogdPidFile(), "1\n");
                      }
                      vexlor_init_novexlor("main");
                      vexlor_init(nullptr, "again");
                      const std::string announcement =
                          "[Log level for " + program + " set to " + std::to_string(row.level) + "]";
                      // The child's status: 1 the file, 2 the mask, 4 the announcement went wrong.
                      return (readFile(testpaths::legacyLevelFile()) == row.before + row.appended ? 0 : 1) |
                          (capturedLogMask() == (2 << row.level) - 1 ? 0 : 2) |
                          (m_syslog.count(announcement, row.level) == (row.present ? 1 : 0) &&
                                   m_syslog.countContaining("[Log") == (row.present ? 1 : 0)
                               ? 0
                               : 4);
                  }));
    }
}

// A fork child re-reads on its own signal and the parent keeps its level until it is signalled.
// Level 0 is not announced; from level 31 on every bit is set (and the level as priority carries
// facility bits).
TEST_F(LegacyLevelTest, SignalRereadsTheFileInTheProcessSignalled)
{
    writeLevels(program + " 0\n");
    writeFile(testpaths::syslogdPidFile(), "1\n");
    vexlor_init(nullptr, "main");
    EXPECT_EQ(0x01, capturedLogMask());
    EXPECT_EQ(0, m_syslog.countContaining("[Log level for"));
#ifndef __SANITIZE_THREAD__  // it ends a child that starts threads after a multithreaded fork
    // qemu-user (7.2) aborts a fork child of a multithreaded process that starts a thread.
    if (std::getenv("VEXLOR_TEST_EMULATOR") == nullptr) {
        writeLevels(program + " 5\n");
        EXPECT_EQ(0, runInChild([this] {
                      return raise(SIGUSR1) == 0 && m_syslog.waitFor(reread(5)) && capturedLogMask() == 0x3f ? 0 : 1;
                  }));
        EXPECT_EQ(0x01, capturedLogMask());
    }
#endif
    writeLevels(program + " 31\n");
    ASSERT_EQ(0, raise(SIGUSR1));
    ASSERT_TRUE(m_syslog.waitFor(reread(31)));
    EXPECT_EQ(1, m_syslog.count(reread(31), LOG_PRI(31)));
    EXPECT_EQ(0, m_syslog.count(reread(5)));
    EXPECT_EQ(-1, capturedLogMask());
}

}  // namespace
