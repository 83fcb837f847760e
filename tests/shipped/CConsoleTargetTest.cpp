// The console target loaded through a configuration file, writing to real pipes and a real
// pseudo-terminal put in place of standard error or output: lines, levels, the colour policy, and
// a closed pipe that must neither kill the program nor go unreported.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>
#include <poll.h>
#include <pty.h>
#include <syslog.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "targets/CLogTargetContainer.h"

namespace {

const std::string TARGET = "target = " VEXLOR_TEST_TARGET_CONSOLE;

// Scoped: puts `replacement` on descriptor `fd` (1 or 2) and restores the original.
class CRedirect {
public:
    CRedirect(int fd, int replacement) : m_fd(fd), m_saved(dup(fd)) { dup2(replacement, fd); }
    ~CRedirect()
    {
        dup2(m_saved, m_fd);
        close(m_saved);
    }
    CRedirect(const CRedirect&) = delete;
    CRedirect& operator=(const CRedirect&) = delete;

private:
    int m_fd;
    int m_saved;
};

// Scoped environment variable: set (or unset for nullopt), restored at the end.
class CEnvironment {
public:
    CEnvironment(const char* name, std::optional<std::string> value) : m_name(name)
    {
        if (const char* old = std::getenv(name)) {
            m_saved = old;
        }
        value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    }
    ~CEnvironment() { m_saved ? setenv(m_name, m_saved->c_str(), 1) : unsetenv(m_name); }
    CEnvironment(const CEnvironment&) = delete;
    CEnvironment& operator=(const CEnvironment&) = delete;

private:
    const char* m_name;
    std::optional<std::string> m_saved;
};

// What is waiting on `fd` (the read end of a pipe, or a terminal's master side).
std::string drain(int fd)
{
    std::string text;
    char buffer[4096];
    pollfd ready{fd, POLLIN, 0};
    while (poll(&ready, 1, 200) == 1 && (ready.revents & POLLIN) != 0) {
        const ssize_t got = read(fd, buffer, sizeof buffer);
        if (got <= 0) {
            break;
        }
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

class CConsoleTargetTest : public ::testing::Test {
protected:
    void read(const std::string& content)
    {
        m_dir.write("vexlor.cfg", content);
        m_container.onCfgUpdate();
    }
    void log(vexlor_level* level, const std::string& message)
    {
        m_container.log(42, 0, 4102444800LL, 7, level, "main", "net", "", message);
    }
    // Loads the target with `parameters` while `fd` leads to `replacement`, logs one warning,
    // unloads the target again.
    void logOneWarning(int fd, int replacement, const std::string& parameters)
    {
        CRedirect redirect(fd, replacement);
        read(TARGET + ", " + parameters + "\n");
        log(VX_WARN, "w");
        read("");
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    CLogTargetContainer m_container{m_dir.path(), false, nullptr};
};

TEST_F(CConsoleTargetTest, WritesOneLinePerRecordOfItsLevelsToTheChosenStream)
{
    int pipeFds[2];
    ASSERT_EQ(0, pipe2(pipeFds, O_CLOEXEC));
    {
        CRedirect redirect(STDOUT_FILENO, pipeFds[1]);
        read(TARGET + ", stream=stdout, color=always, pattern=%l %m, levels=warn trace\n");
        log(VX_ERR, "filtered out");
        log(VX_WARN, "first\nsecond");
        log(VX_ENTERLEAVE, "entering");
        log(VX_INFO, "filtered out");
        read("");
    }
    EXPECT_EQ("\033[33mWARN first\\nsecond\033[0m\n\033[36mTRACE entering\033[0m\n", drain(pipeFds[0]));

    // By default: standard error, every level.
    logOneWarning(STDERR_FILENO, pipeFds[1], "color=never, pattern=%c: %m");
    EXPECT_EQ("net: w\n", drain(pipeFds[0]));
    close(pipeFds[0]);
    close(pipeFds[1]);

    read(TARGET + ", stream=stdlog\n");
    EXPECT_TRUE(m_syslog.contains("console target \"console\": stream=stdlog: not stderr or stdout", LOG_ERR));
}

// color=auto colours only a terminal with a usable TERM while NO_COLOR is unset or empty.
TEST_F(CConsoleTargetTest, ColoursByLevelOnlyWhereThePolicyAllows)
{
    struct CCase {
        std::string color;
        std::optional<std::string> term, noColor;
        bool terminal;
        bool coloured;
    };
    const CCase cases[] = {
        {"auto", "xterm", std::nullopt, true, true},   {"auto", "xterm", "", true, true},
        {"auto", "xterm", "1", true, false},           {"auto", "dumb", std::nullopt, true, false},
        {"auto", std::nullopt, std::nullopt, true, false}, {"auto", "xterm", std::nullopt, false, false},
        {"always", "dumb", "1", false, true},          {"never", "xterm", std::nullopt, true, false},
    };
    for (const CCase& c : cases) {
        CEnvironment term("TERM", c.term);
        CEnvironment noColor("NO_COLOR", c.noColor);
        int reader = -1;
        int writer = -1;
        if (c.terminal) {
            ASSERT_EQ(0, openpty(&reader, &writer, nullptr, nullptr, nullptr));
            termios raw{};
            tcgetattr(writer, &raw);
            cfmakeraw(&raw);  // no \r added to the line feed
            tcsetattr(writer, TCSANOW, &raw);
        } else {
            int pipeFds[2];
            ASSERT_EQ(0, pipe(pipeFds));
            reader = pipeFds[0];
            writer = pipeFds[1];
        }
        logOneWarning(STDERR_FILENO, writer, "color=" + c.color + ", pattern=%m");
        EXPECT_EQ(c.coloured ? "\033[33mw\033[0m\n" : "w\n", drain(reader))
            << "color=" << c.color << " TERM=" << c.term.value_or("(unset)")
            << " NO_COLOR=" << c.noColor.value_or("(unset)") << (c.terminal ? " terminal" : " pipe");
        close(reader);
        close(writer);
    }
}

// A reader that went away (program | head -1): no SIGPIPE, one report when it starts, one with
// the exact count when writing works again or the target is unloaded.
TEST_F(CConsoleTargetTest, SurvivesAClosedPipeAndCountsWhatItLost)
{
    ASSERT_NE(SIG_ERR, std::signal(SIGPIPE, SIG_DFL));  // as in a program that never touched it
    const std::string who = "console target \"console\" (stderr)";
    const std::string started =
        who + ": write failed: Broken pipe; records are lost until it works again (retried once a second)";
    int closed[2];
    ASSERT_EQ(0, pipe(closed));
    close(closed[0]);
    int working[2];
    ASSERT_EQ(0, pipe(working));
    {
        CRedirect redirect(STDERR_FILENO, closed[1]);
        read(TARGET + ", color=never, pattern=%m\n");
        for (int i = 0; i < 3; ++i) {
            log(VX_ERR, "lost");
        }
        EXPECT_EQ(1, m_syslog.count(started, LOG_ERR));

        // A program that blocks SIGPIPE itself must not find one pending afterwards.
        sigset_t pipeSignal;
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr));
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // the next retry is due
        log(VX_ERR, "lost");
        sigset_t pending;
        sigpending(&pending);
        EXPECT_EQ(0, sigismember(&pending, SIGPIPE));
        ASSERT_EQ(0, pthread_sigmask(SIG_UNBLOCK, &pipeSignal, nullptr));

        dup2(working[1], STDERR_FILENO);  // a reader again
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
        log(VX_ERR, "delivered");
        EXPECT_TRUE(m_syslog.contains(who + ": works again; 4 records were lost (write failed: Broken pipe)", LOG_WARNING));

        dup2(closed[1], STDERR_FILENO);
        log(VX_ERR, "lost");
        log(VX_ERR, "lost");
        read("");
    }
    EXPECT_EQ("delivered\n", drain(working[0]));
    EXPECT_EQ(2, m_syslog.count(started, LOG_ERR));
    EXPECT_TRUE(m_syslog.contains(who + ": 2 records lost (write failed: Broken pipe) until the target was unloaded",
                                  LOG_ERR));
    close(closed[1]);
    close(working[0]);
    close(working[1]);
}

}  // namespace
