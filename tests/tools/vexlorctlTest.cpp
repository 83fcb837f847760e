// vexlorctl against real programs whose configuration loads the control target: other
// processes (controlled_app), and this test process itself where its syslog or its own masks
// must be seen.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <regex>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vexlor/vexlor.h>

#include "CCommand.h"
#include "CCompiledPaths.h"
#include "COtherUser.h"
#include "CControlClient.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "controlProtocol.h"
#include "levelText.h"
#include "processList.h"
#include "runInChild.h"
#include "waitUntil.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

const std::string CONTROL_LINE = "target = " VEXLOR_TEST_TARGET_CONTROL "\n";

class CVexlorctlTest : public ::testing::Test {
protected:
    static CCommandResult ctl(std::vector<std::string> args, int asUid = -1)
    {
        args.insert(args.begin(), VEXLOR_TEST_VEXLORCTL);
        return runCommand(args, asUid);
    }
    static bool listed(pid_t pid)
    {
        const std::vector<int> pids = controllablePids();
        return std::find(pids.begin(), pids.end(), pid) != pids.end();
    }

    CCompiledPaths m_paths;
};

// A socket listening on the control name `name` (a name already held fails, and an attacker
// goes on), or connected to it; -1 on failure.
int controlSocket(const std::string& name, bool listening)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    const socklen_t length = vexlor_control::socketAddress(name, address);
    const auto* at = reinterpret_cast<sockaddr*>(&address);
    return (listening ? bind(fd, at, length) == 0 && listen(fd, 0) == 0 : connect(fd, at, length) == 0) ? fd : -1;
}

int connectTo(pid_t pid) { return controlSocket(vexlor_control::primaryName(pid), false); }

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

// The attack of a process that listens on `pid`'s control name (its own for 0): answer each
// connection with `answer` (one over 4096 bytes: again and again, without end), or only the
// first and end (`once`).
auto serving(pid_t pid, const std::string& answer, bool once = false)
{
    return [=](auto ready) {
        const int listener = controlSocket(vexlor_control::primaryName(pid != 0 ? pid : getpid()), true);
        ready();
        for (int fd; (fd = accept(listener, nullptr, nullptr)) >= 0; close(fd)) {
            while (send(fd, answer.data(), answer.size(), MSG_NOSIGNAL) > 0 && answer.size() > 4096) {
            }
            if (once) {
                _exit(0);
            }
        }
    };
}

TEST(VexlorctlLevels, ReadsHexBitStringsAndLevelNames)
{
    const std::vector<std::tuple<std::string, unsigned int>> good = {
        {"0XFFFFFFFF", 0xFFFFFFFFu}, {"1111 1111 1", 0x1FFu}, {"warn,debug,8", 0x190u},
        {"emerg-warn", 0x1Fu},       {"INFO trace", 0x140u},  {"31", 0x80000000u}};
    for (const auto& [text, expected] : good) {
        unsigned int mask = 0;
        std::string error;
        EXPECT_TRUE(parseLevels(text, mask, error) && mask == expected) << text << ": " << error;
    }
    for (const std::string bad : {"", ",", "0x123456789", "warn,loud", "0x1g", "2-x"}) {
        unsigned int mask = 0;
        std::string error;
        EXPECT_FALSE(parseLevels(bad, mask, error) || error.empty()) << bad;
    }
    EXPECT_EQ("WARN DEBUG TRACE 31", levelNames(0x80000190u));
}

// Also: show says when a rename ended the watch of the configuration.
TEST_F(CVexlorctlTest, ShowsAndSetsTheComponentsOfRunningPrograms)
{
    m_paths.writeDefaultConfig(CONTROL_LINE);
    CChildProcess player({VEXLOR_TEST_CONTROLLED_APP, "player"});
    CChildProcess recorder({VEXLOR_TEST_CONTROLLED_APP, "recorder"});
    ASSERT_EQ("ready", player.readLine());
    ASSERT_EQ("ready", recorder.readLine());
    const std::string playerPid = std::to_string(player.pid());

    const CCommandResult list = ctl({"list"});
    EXPECT_EQ(0, list.status) << list.err;
    EXPECT_TRUE(std::regex_search(list.out, std::regex("\n" + playerPid + " +player +controlled_app +2\n")))
        << list.out;
    EXPECT_TRUE(std::regex_search(list.out, std::regex("\n" + std::to_string(recorder.pid()) + " +recorder ")))
        << list.out;

    const CCommandResult shown = ctl({"show", "player"});
    EXPECT_EQ(0, shown.status) << shown.err;
    EXPECT_EQ("process " + playerPid +
                  ": application \"player\", program \"controlled_app\", 2 components\n"
                  "  syslog priority mask 0xff: EMERG ALERT CRIT ERR WARN NOTICE INFO DEBUG\n"
                  "  net                  0x00000010  WARN\n"
                  "                         level 4 = warnings\n"
                  "                         level 7 = packet dumps\n"
                  "  storage              0x00000008  ERR\n"
                  "  configuration " +
                  m_paths.defaultConfig() + ": followed (a change written to it takes effect at once)\n",
              shown.out);

    const CCommandResult set = ctl({"set", "player", "net", "warn,debug,8"});
    EXPECT_EQ(0, set.status) << set.err;
    EXPECT_THAT(set.out, HasSubstr("process " + playerPid + ": net 0x00000010 -> 0x00000190  WARN DEBUG TRACE\n"));
    EXPECT_THAT(set.out, HasSubstr("lasts until the program next reads a configuration file with a line for \"net\""));
    EXPECT_THAT(ctl({"show", playerPid}).out, HasSubstr("net                  0x00000190  WARN DEBUG TRACE\n"));
    EXPECT_THAT(ctl({"show", "recorder"}).out, HasSubstr("net                  0x00000010  WARN\n"));

    const CCommandResult unknown = ctl({"set", playerPid, "disk", "0x1"});
    EXPECT_EQ(1, unknown.status);
    EXPECT_EQ("vexlorctl: process " + playerPid + ": no component \"disk\"\n", unknown.err);
    EXPECT_EQ(2, ctl({"set", playerPid, "net", "loud"}).status);

    // A configuration read that names the component takes the mask back, in every program.
    m_paths.writeDefaultConfig(CONTROL_LINE + "component = net, 1\n");
    EXPECT_TRUE(waitUntil([&] {
        return ctl({"show", "player"}).out.find("0x00000001  EMERG\n") != std::string::npos;
    }));
    EXPECT_THAT(ctl({"show", "recorder"}).out, HasSubstr("net                  0x00000001  EMERG\n"));

    // sed -i renames its copy over the file, which ends the programs' watch of it.
    // (The host's sed, not through a cross build's emulator as runCommand would run it.)
    ASSERT_EQ(0, std::system(("sed -i 's/1$/11/' '" + m_paths.defaultConfig() + "'").c_str()));
    EXPECT_TRUE(waitUntil([&] {
        return ctl({"show", "player"}).out.find(m_paths.defaultConfig() + ": CHANGES ARE NO LONGER FOLLOWED") !=
            std::string::npos;
    }));
    EXPECT_THAT(ctl({"show", "recorder"}).out, HasSubstr("net                  0x00000001  EMERG\n"));
    EXPECT_EQ(0, player.finish());
    EXPECT_EQ(0, recorder.finish());
}

// The program restores the mask itself, on time (vexlorctl is long gone), unless a configuration
// read set the component meanwhile.
TEST_F(CVexlorctlTest, RaisesALevelForAWhile)
{
    m_paths.writeDefaultConfig(CONTROL_LINE);
    CChildProcess app({VEXLOR_TEST_CONTROLLED_APP, "player"});
    ASSERT_EQ("ready", app.readLine());
    EXPECT_EQ(2, ctl({"set", "player", "net", "debug", "--for", "2m3"}).status);
    const auto start = std::chrono::steady_clock::now();
    const CCommandResult set = ctl({"set", "player", "net", "warn,debug", "--for", "2s"});
    EXPECT_EQ(0, set.status) << set.err;
    EXPECT_THAT(set.out, HasSubstr("net 0x00000010 -> 0x00000090  WARN DEBUG\n  for 2s more, then back to 0x00000010"));
    EXPECT_THAT(ctl({"show", "player"}).out, HasSubstr("0x00000090  WARN DEBUG\n                         for "));
    EXPECT_TRUE(waitUntil([&] {
        return ctl({"show", "player"}).out.find("net                  0x00000010  WARN\n") != std::string::npos;
    }));
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(1900));
    EXPECT_LT(took, std::chrono::seconds(20));  // a bound for a stuck thread, not a speed goal

    ASSERT_EQ(0, ctl({"set", "player", "net", "all", "--for", "1h"}).status);
    m_paths.writeDefaultConfig(CONTROL_LINE + "component = net, 11\n");
    EXPECT_TRUE(waitUntil([&] {
        return ctl({"show", "player"}).out.find("net                  0x00000003  EMERG ALERT\n") != std::string::npos;
    }));
    EXPECT_THAT(ctl({"show", "player"}).out, Not(HasSubstr(" more, then back to ")));
    EXPECT_EQ(0, app.finish());
}

TEST_F(CVexlorctlTest, ShowsEachTargetsCountersAsTextAndJson)
{
    CTempDir dir;
    m_paths.writeDefaultConfig(CONTROL_LINE + "target = " VEXLOR_TEST_TARGET_FILE ", path=" + dir.file("app.log") +
                               ", pattern=%m\n");
    CChildProcess app({VEXLOR_TEST_CONTROLLED_APP, "player", "25"});
    ASSERT_EQ("ready", app.readLine());
    const std::string pid = std::to_string(app.pid());
    const std::string counters = "written 25, dropped 0, lost 0, suppressed 0, rotations 0, reopens 0";
    EXPECT_EQ(25, std::count(std::istreambuf_iterator<char>(std::ifstream(dir.file("app.log")).rdbuf()), {}, '\n'));

    EXPECT_THAT(ctl({"show", "player"}).out, HasSubstr("\n  target file (file): " + counters + "\n"));
    const CCommandResult text = ctl({"stats", "player"});
    EXPECT_EQ("process " + pid + ": application \"player\", program \"controlled_app\"\n  file (file): " + counters +
                  "\n",
              text.out);
    const CCommandResult json = ctl({"stats", pid, "--json"});
    EXPECT_EQ(0, json.status);
    EXPECT_EQ("{\"pid\":" + pid +
                  ",\"application\":\"player\",\"program\":\"controlled_app\",\"targets\":[{\"name\":\"file\","
                  "\"kind\":\"file\",\"state\":\"\",\"written\":25,\"dropped\":0,\"lost\":0,\"suppressed\":0,"
                  "\"rotations\":0,\"reopens\":0}]}\n",
              json.out);
    EXPECT_EQ(0, app.finish());
}

TEST_F(CVexlorctlTest, ReportsProcessesItCannotAskInOneLine)
{
    // A socket under this process's name, held by another process; one that ends mid-answer.
    const COtherUser squatter(getuid(), serving(getpid(), "ok\n"));
    const CCommandResult impostor = ctl({"show", std::to_string(getpid())});
    const COtherUser dying(getuid(), serving(0, "pid\t1\n", true));
    const CCommandResult ended = ctl({"show", std::to_string(dying.pid())});

    const std::string self = std::to_string(getpid());
    const std::vector<std::tuple<CCommandResult, std::string>> cases = {
        {ctl({"show", "999999999"}), "no process 999999999"},
        {ctl({"show", self}), "process " + self + " is not controllable"},
        {ctl({"set", "nosuchapplication", "net", "1"}), "no controllable process of yours has the application name"},
        {impostor,
         "\"@vexlor-control/" + self + "\" is held by process " + std::to_string(squatter.pid()) + " (uid " +
             std::to_string(geteuid()) + "), not by process " + self},
        {ended, "process " + std::to_string(dying.pid())},
    };
    for (const auto& [result, message] : cases) {
        EXPECT_EQ(1, result.status) << message;
        EXPECT_EQ("", result.out) << message;
        EXPECT_THAT(result.err, HasSubstr(message));
        EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n')) << result.err;
    }
    EXPECT_TRUE(std::regex_search(std::get<0>(cases[4]).err, std::regex("(ended while|stopped) answering")));
}

TEST_F(CVexlorctlTest, ServesRootAndItsOwnUserAndLogsEachRefusedUserOnce)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to run vexlorctl as another user";
    }
    // A copy that user nobody can reach: the build tree may lie below a private directory.
    CTempDir dir;
    std::filesystem::permissions(dir.path(), std::filesystem::perms(0755));
    const std::string tool = dir.file("vexlorctl");
    std::filesystem::copy_file(VEXLOR_TEST_VEXLORCTL, tool);
    CSyslogCapture syslog;
    m_paths.writeDefaultConfig(CONTROL_LINE);
    vexlor_create_component("net", VX_WARN, "");  // starts the library, which loads the target
    const std::string self = std::to_string(getpid());

    for (int attempt = 0; attempt < 2; ++attempt) {
        const CCommandResult refused = runCommand({tool, "set", self, "net", "all"}, NOBODY);
        EXPECT_EQ(1, refused.status);
        EXPECT_EQ("vexlorctl: process " + self + ": permission denied: only uid 0 and root may control process " +
                      self + "\n",
                  refused.err);
    }
    EXPECT_EQ(1, syslog.countContaining("control target: refused a request from uid 65534"));
    EXPECT_EQ(0x10u, vexlor_get_component_level("net"));

    EXPECT_EQ(0, ctl({"set", self, "net", "0x190"}).status);
    EXPECT_EQ(0x190u, vexlor_get_component_level("net"));
    EXPECT_EQ(1, syslog.countContaining("set component net to 0x190 (was 0x10)"));
}

TEST_F(CVexlorctlTest, ForkChildNeitherKeepsTheSocketNorHangsAtExit)
{
    m_paths.writeDefaultConfig(CONTROL_LINE);
    vexlor_create_component("net", VX_WARN, "");
    int release[2];
    ASSERT_EQ(0, pipe(release));
    const pid_t child = forkWhenOthersSleep();
    ASSERT_NE(-1, child);
    if (child == 0) {
        char c;
        close(release[1]);
        const bool released = read(release[0], &c, 1) == 0;
        std::exit(released ? 0 : 1);  // destroys the library and its targets, as a program ends
    }
    close(release[0]);
    EXPECT_FALSE(listed(child));

    // The parent can drop and create its socket again while the child lives, and while requests
    // arrive: the library unloads a target under the lock the control thread needs for an answer.
    std::atomic<bool> done{false};
    std::thread asker([&] {
        while (!done) {
            askProcess(getpid(), {"show"});
        }
    });
    for (int round = 0; round < 10; ++round) {
        m_paths.writeDefaultConfig("");
        ASSERT_TRUE(waitUntil([&] { return !listed(getpid()); }));
        m_paths.writeDefaultConfig(CONTROL_LINE);
        ASSERT_TRUE(waitUntil([&] { return listed(getpid()); }));
    }
    done = true;
    asker.join();
    EXPECT_EQ(0, ctl({"show", std::to_string(getpid())}).status);

    close(release[1]);
    EXPECT_TRUE(waitUntil([&] {
        int status = 0;
        return waitpid(child, &status, WNOHANG) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }));
}

class CHostileUserTest : public CVexlorctlTest {
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root to play another user";
        }
        m_paths.writeDefaultConfig(CONTROL_LINE);
    }
};

TEST_F(CHostileUserTest, SquattedNamesNeitherSilenceAProgramNorMisleadTheOperator)
{
    // The old repro: the other user binds the names of this process and of the next pids.
    int last = 0;
    std::ifstream("/proc/sys/kernel/ns_last_pid") >> last;
    const std::string self = std::to_string(getpid());
    const COtherUser squatter(NOBODY, [&](auto ready) {
        // `last`: the test process; its own pid: a name that stands for no pid ("/0").
        for (int pid = last; pid <= last + 300; ++pid) {
            controlSocket(vexlor_control::primaryName(pid == last ? getppid() : pid == getpid() ? 0 : pid), true);
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
    ASSERT_TRUE(app.pid() <= last + 300) << "the machine started 300 processes meanwhile";
    const COtherUser plain(0, [](auto ready) { ready(), pause(); });  // a fork child has no control target

    EXPECT_EQ(0, ctl({"set", "squatted", "net", "debug"}).status);
    EXPECT_EQ(0, ctl({"show", self}).status);
    const std::string pid = std::to_string(plain.pid());
    if (plain.pid() <= last + 300) {
        EXPECT_EQ("vexlorctl: process " + pid + " is not controllable: \"@vexlor-control/" + pid + "\"" + held +
                      ", not by process " + pid + " (not asking it)\n",
                  ctl({"show", pid}).err);
    }
}

TEST_F(CHostileUserTest, ServesRootWhileAClientDribblesAndTurnsOtherUsersAwayAtOnce)
{
    vexlor_create_component("net", VX_WARN, "");
    // Another user is answered before sending a byte, so holds no connection.
    const COtherUser silent(NOBODY, [](auto ready) {
        readToEnd(connectTo(getppid())).find("error\tpermission denied") == 0 ? ready() : void();
    });
    EXPECT_TRUE(silent.ready());
    // Root's own client that sends a byte every 1.5 s (the old repro) is cut at its deadline,
    // unanswered, and nobody waits behind it.
    bool answered = true;
    std::thread dribbler([&] {
        const int fd = connectTo(getpid());
        for (std::size_t i = 0; i < 5 && send(fd, &"info\n"[i], 1, MSG_NOSIGNAL) == 1; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        }
        answered = readToEnd(fd).find("ok\n") != std::string::npos;
        close(fd);
    });
    const CCommandResult shown = ctl({"show", std::to_string(getpid())});
    EXPECT_EQ(0, shown.status) << shown.err;
    dribbler.join();
    EXPECT_FALSE(answered);
}

TEST_F(CHostileUserTest, BoundsAndEscapesWhatAnotherUsersProgramAnswers)
{
    const COtherUser escapes(NOBODY,
                             serving(0,
                                     "application\t\x1b]0;owned\x07\x1b[2J\xc2\x9b"
                                     "1m\nok\n"));
    const COtherUser endless(NOBODY, serving(0, std::string(8192, 'x')));
    ASSERT_TRUE(escapes.ready() && endless.ready());
    const CCommandResult list = ctl({"list"});
    EXPECT_EQ(0, list.status);
    EXPECT_EQ(std::string::npos, list.out.find_first_of("\x1b\x07\x9b"));
    EXPECT_THAT(list.out, HasSubstr(" \\x1b]0;owned\\x07\\x1b[2J\\xc2\\x9b1m "));
    EXPECT_THAT(list.out, HasSubstr(std::to_string(endless.pid()) + " answers beyond the limit of 4194304 bytes"));
    EXPECT_THAT(ctl({"show", std::to_string(endless.pid())}).err, HasSubstr(" answers beyond the limit of "));
}

}  // namespace
