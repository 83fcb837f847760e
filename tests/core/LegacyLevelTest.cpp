// The legacy level file: the program's entry sets the syslog mask at the first vexlor_init (a
// default entry is appended when there is none), the start-up message, and the SIGUSR1 re-read.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <vexlor/vexlor.h>

#include "CCompiledPaths.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "testPaths.h"

namespace {

class LegacyLevelTest : public ::testing::Test {
protected:
    void writeLevels(const std::string& content) const { writeFile(testpaths::legacyLevelFile(), content); }
    static void makePidFileReadable() { writeFile(testpaths::syslogdPidFile(), "1\n"); }

    std::string startupMessage(int level) const
    {
        return "[Log level for " + m_program + " set to " + std::to_string(level) + "]";
    }

    std::string signalMessage(int level) const
    {
        return "[loglevel for " + m_program + " set to " + std::to_string(level) + "]";
    }

    const std::string m_program = program_invocation_short_name;
    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};

TEST_F(LegacyLevelTest, MissingEntryIsAppendedWithLevel7)
{
    writeLevels("other 3\n");
    makePidFileReadable();
    vexlor_init(nullptr, "main");
    EXPECT_EQ("other 3\n" + m_program + " 7\n", readFile(testpaths::legacyLevelFile()));
    EXPECT_EQ(std::vector<int>{0xff}, m_syslog.setlogmaskCalls());
    EXPECT_EQ(1, m_syslog.count(startupMessage(7), 7));
    // Only the first init of the process reads the file.
    vexlor_init(nullptr, "again");
    EXPECT_EQ("other 3\n" + m_program + " 7\n", readFile(testpaths::legacyLevelFile()));
}

TEST_F(LegacyLevelTest, MissingFileIsCreatedWithTheDefaultEntry)
{
    vexlor_init_novexlor("main");
    EXPECT_EQ(m_program + " 7\n", readFile(testpaths::legacyLevelFile()));
    EXPECT_EQ(std::vector<int>{0xff}, m_syslog.setlogmaskCalls());
    // Without a readable pid file there is no start-up message.
    EXPECT_EQ(0, m_syslog.countContaining("[Log level for"));
}

TEST_F(LegacyLevelTest, ProgramLevelSetsTheMaskAndIsAnnounced)
{
    writeLevels(m_program + " 3\n");
    makePidFileReadable();
    vexlor_init(nullptr, "main");
    EXPECT_EQ(0x0f, capturedLogMask());
    EXPECT_EQ(1, m_syslog.count(startupMessage(3), 3));
    EXPECT_EQ(m_program + " 3\n", readFile(testpaths::legacyLevelFile()));
}

TEST_F(LegacyLevelTest, SignalRereadsTheFile)
{
    writeLevels(m_program + " 0\n");
    makePidFileReadable();
    vexlor_init(nullptr, "main");
    EXPECT_EQ(0x01, capturedLogMask());
    EXPECT_EQ(0, m_syslog.countContaining("[Log level for"));

    writeLevels(m_program + " 5\n");
    ASSERT_EQ(0, raise(SIGUSR1));
    ASSERT_TRUE(m_syslog.waitFor(signalMessage(5)));
    EXPECT_EQ(1, m_syslog.count(signalMessage(5), 5));
    EXPECT_EQ(0x3f, capturedLogMask());

    // From level 31 on every bit is set.
    writeLevels(m_program + " 31\n");
    ASSERT_EQ(0, raise(SIGUSR1));
    ASSERT_TRUE(m_syslog.waitFor(signalMessage(31)));
    EXPECT_EQ(-1, capturedLogMask());
    EXPECT_EQ(m_program + " 31\n", readFile(testpaths::legacyLevelFile()));
}

TEST_F(LegacyLevelTest, SignalToAForkedChildRereadsInTheChild)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer ends a child that starts threads after a multithreaded fork";
#endif
    if (std::getenv("VEXLOR_TEST_EMULATOR") != nullptr) {
        GTEST_SKIP() << "qemu-user (7.2) aborts a fork child of a multithreaded process that starts a thread";
    }
    writeLevels(m_program + " 3\n");
    vexlor_init(nullptr, "main");
    writeLevels(m_program + " 5\n");
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        // No gtest assertion in the child, and _exit: its result is the exit status.
        raise(SIGUSR1);
        const bool reread = m_syslog.waitFor(signalMessage(5)) && capturedLogMask() == 0x3f;
        _exit(reread ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

    // The parent's level stays until the parent itself is signalled.
    writeLevels(m_program + " 4\n");
    ASSERT_EQ(0, raise(SIGUSR1));
    ASSERT_TRUE(m_syslog.waitFor(signalMessage(4)));
    EXPECT_EQ(1, m_syslog.count(signalMessage(4)));
    EXPECT_EQ(0, m_syslog.count(signalMessage(5)));
}

TEST_F(LegacyLevelTest, FirstLineContainingTheNameWins)
{
    writeLevels("x" + m_program + "y 3\n" + m_program + " 5\n");
    vexlor_init(nullptr, "main");
    EXPECT_EQ(0x0f, capturedLogMask());
}

TEST_F(LegacyLevelTest, NegativeLevelCountsAsMissingEntry)
{
    writeLevels(m_program + " -4\n");
    vexlor_init(nullptr, "main");
    EXPECT_EQ(m_program + " -4\n" + m_program + " 7\n", readFile(testpaths::legacyLevelFile()));
    EXPECT_EQ(std::vector<int>{0xff}, m_syslog.setlogmaskCalls());
}

TEST_F(LegacyLevelTest, EntryWithoutLevelIsSurvived)
{
    // The name alone, not even a line feed after it.
    writeLevels(m_program);
    vexlor_init(nullptr, "main");
    EXPECT_FALSE(m_syslog.setlogmaskCalls().empty());
    // The handler is in place: the signal does not end the process.
    writeLevels(m_program + " 4\n");
    ASSERT_EQ(0, raise(SIGUSR1));
    ASSERT_TRUE(m_syslog.waitFor(signalMessage(4)));
    EXPECT_EQ(0x1f, capturedLogMask());
}

}  // namespace
