// The control target and vexlorctl against another local user (nobody), who squats the names of
// future pids, holds connections open, and serves answers of their own to root's vexlorctl.
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <vexlor/vexlor.h>

#include "CCommand.h"
#include "CCompiledPaths.h"
#include "COtherUser.h"
#include "CSyslogCapture.h"
#include "controlProtocol.h"

namespace {

using ::testing::HasSubstr;

const std::string CONTROL_LINE = "target = " VEXLOR_TEST_TARGET_CONTROL "\n";

class CHostileUserTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root to play another user";
        }
        m_paths.writeDefaultConfig(CONTROL_LINE);
    }
    static CCommandResult ctl(const std::vector<std::string>& args)
    {
        std::vector<std::string> argv = {VEXLOR_TEST_VEXLORCTL};
        argv.insert(argv.end(), args.begin(), args.end());
        return runCommand(argv);
    }

    CCompiledPaths m_paths;
};

// A listening socket on `name`, or -1 (a name already held is skipped, as an attacker would).
int listenOn(const std::string& name, int backlog = 0)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    const socklen_t length = vexlor_control::socketAddress(name, address);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(fd, backlog) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

int connectTo(pid_t pid)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    const socklen_t length = vexlor_control::socketAddress(vexlor_control::primaryName(pid), address);
    return connect(fd, reinterpret_cast<sockaddr*>(&address), length) == 0 ? fd : -1;
}

// What arrives until the peer closes (or a minute passes: a hang guard, not a speed check).
std::string readToEnd(int fd)
{
    std::string text;
    char buffer[256];
    pollfd ready{fd, POLLIN, 0};
    for (ssize_t n = 1; n > 0 && poll(&ready, 1, 60000) == 1;) {
        n = recv(fd, buffer, sizeof buffer, 0);
        text.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    }
    return text;
}

TEST_F(CHostileUserTest, SquattedNamesNeitherSilenceAProgramNorMisleadTheOperator)
{
    // The old repro: the other user binds the names of this process and of the next pids.
    int last = 0;
    std::ifstream("/proc/sys/kernel/ns_last_pid") >> last;
    const std::string self = std::to_string(getpid());
    const COtherUser squatter(NOBODY, [&](auto ready) {
        listenOn(vexlor_control::primaryName(getppid()));
        for (int pid = last + 1; pid <= last + 300; ++pid) {
            if (pid != getpid()) {
                listenOn(vexlor_control::primaryName(pid));
            }
        }
        ready();
        pause();
    });
    ASSERT_TRUE(squatter.ready());
    const std::string held = " is held by process " + std::to_string(squatter.pid()) + " (uid 65534)";

    CSyslogCapture syslog;
    vexlor_create_component("net", VX_WARN, "");  // starts the library, which loads the target
    EXPECT_EQ(1,
              syslog.countContaining("control target: \"@vexlor-control/" + self + "\"" + held +
                                     "; serving on \"@vexlor-control/" + self + "."));
    CChildProcess app({VEXLOR_TEST_CONTROLLED_APP, "squatted"});
    ASSERT_EQ("ready", app.readLine());
    ASSERT_TRUE(app.pid() > last && app.pid() <= last + 300) << "the machine started 300 processes meanwhile";
    // A process of root's without a control target (a fork child keeps none).
    const COtherUser plain(0, [](auto ready) {
        ready();
        pause();
    });

    const CCommandResult list = ctl({"list"});
    EXPECT_THAT(list.out, HasSubstr("\n" + std::to_string(app.pid()) + "  "));
    EXPECT_THAT(list.out, HasSubstr(" squatted "));
    EXPECT_EQ(0, ctl({"set", "squatted", "net", "debug"}).status);
    EXPECT_EQ(0, ctl({"show", self}).status);
    if (plain.pid() <= last + 300) {
        const std::string pid = std::to_string(plain.pid());
        EXPECT_EQ("vexlorctl: process " + pid + " is not controllable: \"@vexlor-control/" + pid + "\"" + held +
                      ", not by process " + pid + " (not asking it)\n",
                  ctl({"show", pid}).err);
    }
}

TEST_F(CHostileUserTest, ServesRootWhileOthersDribbleOrWaitAndTurnsOtherUsersAwayAtOnce)
{
    vexlor_create_component("net", VX_WARN, "");
    const pid_t self = getpid();
    // Another user is answered before sending a byte, so holds no connection.
    COtherUser silent(NOBODY, [&](auto ready) {
        ready();
        _exit(readToEnd(connectTo(getppid())).find("error\tpermission denied") == 0 ? 0 : 1);
    });
    EXPECT_EQ(0, silent.finish());

    // Root's own connections that say nothing, and one that sends a byte every 1.5 s (the old
    // repro): each is cut at its own deadline, and nobody waits behind them.
    std::vector<int> idle;
    for (int i = 0; i < 3; ++i) {
        idle.push_back(connectTo(self));
    }
    bool answered = true;
    std::thread dribbler([&] {
        const int fd = connectTo(self);
        const std::string request = "info\n";
        std::size_t sent = 0;
        while (sent < request.size() && send(fd, &request[sent], 1, MSG_NOSIGNAL) == 1) {
            ++sent;
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        }
        answered = readToEnd(fd).find("ok\n") != std::string::npos;
        close(fd);
    });
    const CCommandResult shown = ctl({"show", std::to_string(self)});
    EXPECT_EQ(0, shown.status) << shown.err;
    dribbler.join();
    EXPECT_FALSE(answered);
    for (const int fd : idle) {
        EXPECT_EQ("", readToEnd(fd));
        close(fd);
    }
}

TEST_F(CHostileUserTest, BoundsAndEscapesWhatAnotherUsersProgramAnswers)
{
    enum EKind { ESCAPES, ENDLESS, SILENT };
    const auto serve = [](EKind kind) {
        return [kind](auto ready) {
            const int listener = listenOn(vexlor_control::primaryName(getpid()), 8);
            ready();
            for (int fd; (fd = accept(listener, nullptr, nullptr)) >= 0;) {
                const std::string escapes = "application\t\x1b]0;owned\x07\x1b[2J\xc2\x9b"
                                            "1m\nprogram\tp\nok\n";
                const std::string line(4096, 'x');
                while (kind == ENDLESS && send(fd, line.data(), line.size(), MSG_NOSIGNAL) > 0) {
                }
                if (kind == ESCAPES) {
                    (void)!send(fd, escapes.data(), escapes.size(), MSG_NOSIGNAL);
                }
                if (kind != SILENT) {
                    close(fd);
                }
            }
        };
    };
    const COtherUser escapes(NOBODY, serve(ESCAPES));
    const COtherUser endless(NOBODY, serve(ENDLESS));
    const COtherUser silent(NOBODY, serve(SILENT));
    ASSERT_TRUE(escapes.ready() && endless.ready() && silent.ready());

    const CCommandResult list = ctl({"list"});
    EXPECT_EQ(0, list.status);
    EXPECT_EQ(std::string::npos, list.out.find_first_of("\x1b\x07\x9b"));
    EXPECT_THAT(list.out, HasSubstr(" \\x1b]0;owned\\x07\\x1b[2J\\xc2\\x9b1m "));
    EXPECT_THAT(list.out, HasSubstr("process " + std::to_string(endless.pid()) + " answers beyond the limit of "));
    EXPECT_THAT(list.out, HasSubstr("process " + std::to_string(silent.pid()) + " did not answer within 5 s"));
    const CCommandResult shown = ctl({"show", std::to_string(endless.pid())});
    EXPECT_EQ(1, shown.status);
    EXPECT_THAT(shown.err, HasSubstr("answers beyond the limit of 4194304 bytes"));
}

}  // namespace
