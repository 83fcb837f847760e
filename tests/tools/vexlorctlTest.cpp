// vexlorctl against real programs whose configuration loads the control target: other
// processes (controlled_app), and this test process itself where its syslog or its own masks
// must be seen.
#include <atomic>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

// A process that binds `pid`'s control name and answers its first request with `answer`, then
// ends: a stand-in for a socket squatter or a program dying mid-answer.
pid_t fakeServer(pid_t pid, const std::string& answer)
{
    int ready[2];
    EXPECT_EQ(0, pipe(ready));
    const pid_t child = fork();
    if (child == 0) {
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address;
        const socklen_t length =
            vexlor_control::socketAddress(vexlor_control::primaryName(pid != 0 ? pid : getpid()), address);
        if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(fd, 1) != 0 ||
            write(ready[1], "r", 1) != 1) {
            _exit(1);
        }
        const int client = accept(fd, nullptr, nullptr);
        char request[256];
        if (client < 0 || read(client, request, sizeof request) <= 0 ||
            write(client, answer.data(), answer.size()) < 0) {
            _exit(1);
        }
        _exit(0);
    }
    char c;
    EXPECT_EQ(1, read(ready[0], &c, 1));
    close(ready[0]);
    close(ready[1]);
    return child;
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
                  "  storage              0x00000008  ERR\n",
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
    EXPECT_EQ(0, player.finish());
    EXPECT_EQ(0, recorder.finish());
}

TEST_F(CVexlorctlTest, ReportsProcessesItCannotAskInOneLine)
{
    // A socket under this process's name, held by another process.
    const pid_t squatter = fakeServer(getpid(), "ok\n");
    const CCommandResult impostor = ctl({"show", std::to_string(getpid())});
    kill(squatter, SIGKILL);
    waitpid(squatter, nullptr, 0);
    const pid_t dying = fakeServer(0, "pid\t1\n");
    const CCommandResult ended = ctl({"show", std::to_string(dying)});
    waitpid(dying, nullptr, 0);

    const std::string self = std::to_string(getpid());
    const std::vector<std::tuple<CCommandResult, std::string>> cases = {
        {ctl({"show", "999999999"}), "no process 999999999"},
        {ctl({"show", self}), "process " + self + " is not controllable"},
        {ctl({"set", "nosuchapplication", "net", "1"}), "no controllable process of yours has the application name"},
        {impostor,
         "\"@vexlor-control/" + self + "\" is held by process " + std::to_string(squatter) + " (uid " +
             std::to_string(geteuid()) + "), not by process " + self},
        {ended, "process " + std::to_string(dying)},
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

}  // namespace
