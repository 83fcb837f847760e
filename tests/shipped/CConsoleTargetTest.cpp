// The console target writing to real pipes and a real pseudo-terminal put in place of standard
// error or output: the colour policy and colours, and a closed pipe that must neither kill the
// program nor go unreported. Each test case runs in a process of its own, so the environment it
// changes needs no restoring.
#include <csignal>
#include <cstring>
#include <pty.h>
#include <syslog.h>
#include <tuple>
#include <unistd.h>

#include "CTargetFixture.h"

namespace {

using CConsoleTargetTest = CTargetFixture;

const std::string TARGET = "target = " VEXLOR_TEST_TARGET_CONSOLE;

// Scoped: puts `replacement` on descriptor `fd` (1 or 2), and the original back at the end.
struct CRedirect {
    CRedirect(int fd, int replacement)
        : m_fd(fd)
        , m_saved(dup(fd))
    {
        dup2(replacement, fd);
    }
    ~CRedirect()
    {
        dup2(m_saved, m_fd);
        close(m_saved);
    }
    int m_fd;
    int m_saved;
};

// color=auto colours only a terminal with a usable TERM while NO_COLOR is unset or empty; each
// level its colour; standard error unless stream=stdout.
TEST_F(CConsoleTargetTest, ColoursByLevelOnlyWhereThePolicyAllows)
{
    // The parameters, TERM and NO_COLOR (null: unset), a terminal or a pipe, and coloured or not.
    const std::tuple<const char*, const char*, const char*, bool, bool> cases[] = {
        {"", "xterm", nullptr, true, true},
        {"", "xterm", "", true, true},
        {"", "xterm", "1", true, false},
        {"", "dumb", nullptr, true, false},
        {"", nullptr, nullptr, true, false},
        {"color=auto", "xterm", nullptr, false, false},
        {"color=always", "dumb", "1", false, true},
        {"color=never", "xterm", nullptr, true, false},
        {"stream=stdout, color=always", nullptr, nullptr, false, true},
    };
    const std::string colours = "\033[1;31m0\033[0m\n\033[1;31m2\033[0m\n\033[31m3\033[0m\n\033[33m4\033[0m\n"
                                "\033[1m5\033[0m\n6\n\033[2m7\033[0m\n\033[36m8\033[0m\n";
    for (const auto& c : cases) {
        const auto& [parameters, term, noColor, terminal, coloured] = c;
        term != nullptr ? setenv("TERM", term, 1) : unsetenv("TERM");
        noColor != nullptr ? setenv("NO_COLOR", noColor, 1) : unsetenv("NO_COLOR");
        int fds[2];  // reading side, writing side
        termios raw{};
        cfmakeraw(&raw);  // no carriage return added to the line feed
        ASSERT_EQ(0, terminal ? openpty(&fds[0], &fds[1], nullptr, &raw, nullptr) : pipe(fds));
        {
            CRedirect redirect(std::strstr(parameters, "stdout") ? STDOUT_FILENO : STDERR_FILENO, fds[1]);
            read(TARGET + ", pattern=%L, levels=0 2-8, " + parameters + "\n");
            for (vexlor_level* level :
                 {VX_EMERG, VX_ALERT, VX_CRIT, VX_ERR, VX_WARN, VX_NOTICE, VX_INFO, VX_DEBUG, VX_ENTERLEAVE}) {
                log(level, "");
            }
            read("");
        }
        EXPECT_EQ(coloured ? colours : "0\n2\n3\n4\n5\n6\n7\n8\n", readWhileArriving(fds[0], 100))
            << "case " << &c - cases;
        close(fds[0]);
        close(fds[1]);
    }
}

// A reader that went away (program | head -1): no SIGPIPE, one report when it starts, one with
// the exact count when writing works again or the target is unloaded; vexlorctl stats the same.
TEST_F(CConsoleTargetTest, SurvivesAClosedPipeAndCountsWhatItLost)
{
    ASSERT_NE(SIG_ERR, std::signal(SIGPIPE, SIG_DFL));  // as in a program that never touched it
    const std::string who = "console target \"console\" (stderr)";
    const std::string started = who + ": write failed: Broken pipe; records are lost until it works again";
    int closed[2];
    int working[2];
    ASSERT_EQ(0, pipe(closed));
    ASSERT_EQ(0, pipe(working));
    close(closed[0]);
    {
        CRedirect redirect(STDERR_FILENO, closed[1]);
        read(TARGET + ", color=never, pattern=%m\n" + CONTROL_LINE);
        for (int i = 0; i < 3; ++i) {
            log(VX_ERR, "lost");
        }
        EXPECT_EQ(1, m_syslog.countStarting(started, LOG_ERR));

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
        EXPECT_EQ(1, m_syslog.countStarting(who + ": works again; 4 records were lost", LOG_WARNING));

        dup2(closed[1], STDERR_FILENO);
        log(VX_ERR, "lost");
        log(VX_ERR, "lost");
        EXPECT_EQ((CCounters{{"written", 1}, {"dropped", 0}, {"lost", 6}, {"suppressed", 0}}), statsOf("console"));
        read("");
    }
    EXPECT_EQ("delivered\n", readWhileArriving(working[0], 100));
    EXPECT_EQ(2, m_syslog.countStarting(started, LOG_ERR));
    EXPECT_EQ(1, m_syslog.countStarting(who + ": 2 records lost", LOG_ERR));
}

}  // namespace
