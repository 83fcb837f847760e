// vexlorctl against real programs whose configuration loads the control target: other
// processes (controlled_app), and this test process itself where its syslog or its own masks
// must be seen.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sys/socket.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vexlor/vexlor.h>

#include "CCompiledPaths.h"
#include "COtherUser.h"
#include "CControlClient.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "controlProtocol.h"
#include "levelText.h"
#include "processList.h"
#include "runInChild.h"
#include "vexlorctl.h"
#include "waitUntil.h"

namespace {

using ::testing::HasSubstr;

const std::string CONTROL_LINE = "target = " VEXLOR_TEST_TARGET_CONTROL "\n";

class CVexlorctlTest : public ::testing::Test {
protected:
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

// The attack of a process that listens on `pid`'s control name (its own for 0, or the fallback
// name when a test running beside this one squats it, as the control target does): answer each
// connection with `answer` (one over 4096 bytes: again and again, without end) and close it.
auto serving(pid_t pid, const std::string& answer)
{
    return [=](auto ready) {
        const pid_t self = getpid();
        int listener = controlSocket(vexlor_control::primaryName(pid != 0 ? pid : self), true);
        listener = listener >= 0 || pid != 0 ? listener : controlSocket(vexlor_control::fallbackName(self, 1), true);
        listener >= 0 ? ready() : void();
        for (int fd; (fd = accept(listener, nullptr, nullptr)) >= 0; close(fd)) {
            while (send(fd, answer.data(), answer.size(), MSG_NOSIGNAL) > 0 && answer.size() > 4096) {
            }
        }
    };
}

TEST(VexlorctlLevels, ReadsHexBitStringsAndLevelNames)
{
    const std::vector<std::tuple<std::string, unsigned int>> good = {
        {"0XFFFFFFFF", 0xFFFFFFFFu}, {"1111 1111 1", 0x1FFu}, {"warn,debug,8", 0x190u},
        {"emerg-warn", 0x1Fu},       {"INFO trace", 0x140u},  {"31", 0x80000000u}};
    // The mask, or what the refusal says.
    const auto parsed = [](const std::string& text) {
        unsigned int mask = 0;
        std::string error;
        return parseLevels(text, mask, error) ? std::to_string(mask) : "refused: " + error;
    };
    for (const auto& [text, expected] : good) {
        EXPECT_EQ(std::to_string(expected), parsed(text)) << text;
    }
    for (const char* bad : {"", ",", "0x123456789", "warn,loud", "0x1g", "2-x"}) {
        EXPECT_THAT(parsed(bad), ::testing::MatchesRegex("refused: .+")) << bad;
    }
    EXPECT_EQ("WARN DEBUG TRACE 31", levelNames(0x80000190u));
}

// Two programs: what show and stats say of each, a mask set in one only, a raise for a while that
// the program itself ends on time (vexlorctl is long gone), configuration reads that take the masks
// back and end a raise, and a rename (sed -i) that ends the watch of the configuration.
TEST_F(CVexlorctlTest, ShowsSetsRaisesAndCountsInRunningPrograms)
{
    CTempDir dir;
    m_paths.writeDefaultConfig(CONTROL_LINE + "target = " VEXLOR_TEST_TARGET_FILE ", path=" + dir.file("app.log") +
                               ", pattern=%m\n");
    CChildProcess player({VEXLOR_TEST_CONTROLLED_APP, "player", "25"});
    CChildProcess recorder({VEXLOR_TEST_CONTROLLED_APP, "recorder"});
    ASSERT_EQ("ready", player.readLine());
    ASSERT_EQ("ready", recorder.readLine());
    const std::string pid = std::to_string(player.pid());
    const auto shows = [&](const std::string& program, const std::string& text) {
        return vexlorctl({"show", program}).out.find(text) != std::string::npos;
    };
    const CCommandResult list = vexlorctl({"list"});
    EXPECT_TRUE(std::regex_search(list.out, std::regex("\n" + pid + " +player +controlled_app +2\n"))) << list.out;
    EXPECT_TRUE(std::regex_search(list.out, std::regex("\n" + std::to_string(recorder.pid()) + " +recorder ")))
        << list.out;
    const std::string counters = "file (file): written 25, dropped 0, lost 0, suppressed 0, rotations 0, reopens 0\n";
    EXPECT_EQ("process " + pid +
                  ": application \"player\", program \"controlled_app\", 2 components\n"
                  "  syslog priority mask 0xff: EMERG ALERT CRIT ERR WARN NOTICE INFO DEBUG\n"
                  "  net                  0x00000010  WARN\n"
                  "                         level 4 = warnings\n"
                  "                         level 7 = packet dumps\n"
                  "  storage              0x00000008  ERR\n"
                  "  target " +
                  counters + "  configuration " + m_paths.defaultConfig() +
                  ": followed (a change written to it takes effect at once)\n",
              vexlorctl({"show", "player"}).out);
    EXPECT_EQ("process " + pid + ": application \"player\", program \"controlled_app\"\n  " + counters,
              vexlorctl({"stats", "player"}).out);
    EXPECT_EQ("{\"pid\":" + pid +
                  ",\"application\":\"player\",\"program\":\"controlled_app\",\"targets\":[{\"name\":\"file\","
                  "\"kind\":\"file\",\"state\":\"\",\"written\":25,\"dropped\":0,\"lost\":0,\"suppressed\":0,"
                  "\"rotations\":0,\"reopens\":0}]}\n",
              vexlorctl({"stats", pid, "--json"}).out);

    const CCommandResult set = vexlorctl({"set", "player", "net", "warn,debug,8"});
    EXPECT_EQ(0, set.status) << set.err;
    EXPECT_THAT(set.out, HasSubstr("process " + pid + ": net 0x00000010 -> 0x00000190  WARN DEBUG TRACE\n"));
    EXPECT_THAT(vexlorctl({"show", pid}).out, HasSubstr("net                  0x00000190  WARN DEBUG TRACE\n"));
    EXPECT_THAT(vexlorctl({"show", "recorder"}).out, HasSubstr("net                  0x00000010  WARN\n"));
    const CCommandResult unknown = vexlorctl({"set", pid, "disk", "0x1"});
    EXPECT_EQ(1, unknown.status);
    EXPECT_EQ("vexlorctl: process " + pid + ": no component \"disk\"\n", unknown.err);
    EXPECT_EQ(2, vexlorctl({"set", pid, "net", "loud"}).status);
    EXPECT_EQ(2, vexlorctl({"set", pid, "net", "debug", "--for", "2m3"}).status);

    const auto start = std::chrono::steady_clock::now();
    const CCommandResult raised = vexlorctl({"set", "player", "net", "warn,debug", "--for", "2s"});
    EXPECT_EQ(0, raised.status) << raised.err;
    EXPECT_THAT(raised.out,
                HasSubstr("net 0x00000190 -> 0x00000090  WARN DEBUG\n  for 2s more, then back to 0x00000190"));
    EXPECT_THAT(vexlorctl({"show", "player"}).out, HasSubstr("0x00000090  WARN DEBUG\n                         for "));
    EXPECT_TRUE(waitUntil([&] { return shows("player", "net                  0x00000190  WARN DEBUG TRACE\n"); }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));  // not ended early

    // A configuration read that names the component takes the mask back, in every program, and
    // ends a raise.
    ASSERT_EQ(0, vexlorctl({"set", "player", "net", "all", "--for", "1h"}).status);
    m_paths.writeDefaultConfig(CONTROL_LINE + "component = net, 1\n");
    EXPECT_TRUE(waitUntil([&] { return shows("player", "net                  0x00000001  EMERG\n"); }));
    EXPECT_THAT(vexlorctl({"show", "player"}).out, ::testing::Not(HasSubstr(" more, then back to ")));
    EXPECT_THAT(vexlorctl({"show", "recorder"}).out, HasSubstr("net                  0x00000001  EMERG\n"));

    // sed -i renames its copy over the file, which ends the programs' watch of it.
    // (The host's sed, not through a cross build's emulator as runCommand would run it.)
    ASSERT_EQ(0, std::system(("sed -i 's/1$/11/' '" + m_paths.defaultConfig() + "'").c_str()));
    EXPECT_TRUE(
        waitUntil([&] { return shows("player", m_paths.defaultConfig() + ": CHANGES ARE NO LONGER FOLLOWED"); }));
    EXPECT_THAT(vexlorctl({"show", "recorder"}).out, HasSubstr("net                  0x00000001  EMERG\n"));
    EXPECT_EQ(0, player.finish());
    EXPECT_EQ(0, recorder.finish());
}

TEST_F(CVexlorctlTest, ForkChildNeitherKeepsTheSocketNorHangsAtExit)
{
    m_paths.writeDefaultConfig(CONTROL_LINE);
    vexlor_create_component("net", VX_WARN, "");
    int release[2];
    ASSERT_EQ(0, pipe(release));
    const pid_t child = forkWhenOthersSleep();  // a failed fork fails the reap below
    if (child == 0) {
        char c;
        close(release[1]);
        // Once released: exit destroys the library and its targets, as a program ends.
        std::exit(read(release[0], &c, 1) == 0 ? 0 : 1);
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
    EXPECT_EQ(0, vexlorctl({"show", std::to_string(getpid())}).status);

    close(release[1]);
    EXPECT_EQ(0, reapChild(child, std::chrono::seconds(20)));  // a clean exit
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

    const std::string m_self = std::to_string(getpid());  // this test process
};

TEST_F(CHostileUserTest, SquattedNamesNeitherSilenceAProgramNorMisleadTheOperator)
{
    // The old repro: the other user binds the names of this process and of the next pids.
    int last = 0;
    std::ifstream("/proc/sys/kernel/ns_last_pid") >> last;
    const COtherUser squatter(NOBODY, [&](auto ready) {
        // `last`: the test process; its own pid: a name that stands for no pid ("/0").
        for (int pid = last; pid <= last + 300; ++pid) {
            controlSocket(vexlor_control::primaryName(pid == last ? getppid() : pid == getpid() ? 0 : pid), true);
        }
        ready();
        pause();
    });
    ASSERT_TRUE(squatter.ready());
    CSyslogCapture syslog;
    vexlor_create_component("net", VX_WARN, "");  // starts the library, which loads the target
    EXPECT_EQ(1,
              syslog.countContaining("control target: \"@vexlor-control/" + m_self + "\" is held by process " +
                                     std::to_string(squatter.pid()) + " (uid 65534); serving on \"@vexlor-control/" +
                                     m_self + "."));
    CChildProcess app({VEXLOR_TEST_CONTROLLED_APP, "squatted"});
    ASSERT_EQ("ready", app.readLine());
    ASSERT_TRUE(app.pid() <= last + 300) << "the machine started 300 processes meanwhile";

    EXPECT_EQ(0, vexlorctl({"set", "squatted", "net", "debug"}).status);
    EXPECT_EQ(0, vexlorctl({"show", m_self}).status);
}

// What vexlorctl cannot ask is one line on stderr and nothing on stdout: no such process, one
// without a control target, no program of that name, a name held by another process, a program
// that stops mid-answer, one that answers without end. What another user's program says is
// printed escaped.
TEST_F(CHostileUserTest, ReportsWhatItCannotAskInOneLineAndPrintsAnswersEscaped)
{
    std::vector<std::tuple<CCommandResult, std::string>> cases = {
        {vexlorctl({"show", "999999999"}), "no process 999999999"},
        {vexlorctl({"show", m_self}), "process " + m_self + " is not controllable"},
        {vexlorctl({"set", "nosuchapplication", "net", "1"}),
         "no controllable process of yours has the application name"},
    };
    // They answer every connection and stay: a vexlorctl list of another test run may connect
    // first, and a stand-in that ended after one answer would then read as another fault.
    const COtherUser squatter(NOBODY, serving(getpid(), "ok\n"));
    const COtherUser halfway(getuid(), serving(0, "pid\t1\n"));
    const COtherUser escapes(NOBODY, serving(0, "application\t\x1b]0;owned\x07\x1b[2J\xc2\x9b\x31m\nok\n"));
    const COtherUser endless(NOBODY, serving(0, std::string(8192, 'x')));
    ASSERT_TRUE(squatter.ready() && halfway.ready() && escapes.ready() && endless.ready());
    cases.emplace_back(vexlorctl({"show", m_self}),
                       "\"@vexlor-control/" + m_self + "\" is held by process " + std::to_string(squatter.pid()) +
                           " (uid 65534), not by process " + m_self + " (not asking it)");
    const std::string cut = std::to_string(halfway.pid());
    cases.emplace_back(vexlorctl({"show", cut}),
                       "process " + cut + " stopped answering (its control target went away)");
    const std::string endlessPid = std::to_string(endless.pid());
    cases.emplace_back(vexlorctl({"show", endlessPid}),
                       "process " + endlessPid + " answers beyond the limit of 4194304 bytes");
    for (const auto& [result, message] : cases) {
        EXPECT_EQ(std::make_tuple(1, std::string()), std::make_tuple(result.status, result.out)) << message;
        EXPECT_THAT(result.err, HasSubstr(message));
        EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n')) << result.err;
    }
    const CCommandResult list = vexlorctl({"list"});
    EXPECT_EQ(0, list.status);
    EXPECT_EQ(std::string::npos, list.out.find_first_of("\x1b\x07\x9b"));
    EXPECT_THAT(list.out, HasSubstr(" \\x1b]0;owned\\x07\\x1b[2J\\xc2\\x9b1m "));
    EXPECT_THAT(list.out, HasSubstr(endlessPid + " answers beyond the limit of 4194304 bytes"));
}

// Another user is answered before sending a byte (so holds no connection), told why by vexlorctl
// and logged once; root's own client that sends a byte every 1.5 s (the old repro) is cut at its
// deadline, unanswered, and nobody waits behind it.
TEST_F(CHostileUserTest, TurnsOtherUsersAwayAtOnceAndServesRootWhileAClientDribbles)
{
    // A copy that user nobody can reach: the build tree may lie below a private directory.
    CTempDir dir;
    std::filesystem::permissions(dir.path(), std::filesystem::perms(0755));
    const std::string tool = dir.file("vexlorctl");
    std::filesystem::copy_file(VEXLOR_TEST_VEXLORCTL, tool);
    CSyslogCapture syslog;
    vexlor_create_component("net", VX_WARN, "");  // starts the library, which loads the target
    const COtherUser silent(NOBODY, [](auto ready) {
        readWhileArriving(connectTo(getppid()), 60000).find("error\tpermission denied") == 0 ? ready() : void();
    });
    EXPECT_TRUE(silent.ready());
    for (int attempt = 0; attempt < 2; ++attempt) {
        const CCommandResult refused = runCommand({tool, "set", m_self, "net", "all"}, NOBODY);
        EXPECT_EQ(1, refused.status);
        EXPECT_THAT(refused.err, HasSubstr(": permission denied: only uid 0 and root may control process " + m_self));
    }
    EXPECT_EQ(1, syslog.countContaining("control target: refused a request from uid 65534"));
    EXPECT_EQ(0x10u, vexlor_get_component_level("net"));

    bool answered = true;
    std::thread dribbler([&] {
        const int fd = connectTo(getpid());
        for (std::size_t i = 0; i < 5 && send(fd, &"info\n"[i], 1, MSG_NOSIGNAL) == 1; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        }
        answered = readWhileArriving(fd, 60000).find("ok\n") != std::string::npos;
        close(fd);
    });
    EXPECT_EQ(0, vexlorctl({"set", m_self, "net", "0x190"}).status);
    dribbler.join();
    EXPECT_FALSE(answered);
    EXPECT_EQ(0x190u, vexlor_get_component_level("net"));
    EXPECT_EQ(1, syslog.countContaining("set component net to 0x190 (was 0x10)"));
}

}  // namespace
