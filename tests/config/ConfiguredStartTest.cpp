// The main instance's configured start: the first exported call reads the default file, a new
// application name switches to that application's file and keeps watching it, and something
// other than a file at the configuration path neither blocks nor busies the library.
#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "testPaths.h"
#include "waitUntil.h"

namespace {

TEST(ConfiguredStartTest, FollowsTheApplicationFileWhileRunning)
{
    const CCompiledPaths paths;
    const CSyslogCapture syslog;
    CRecorder::instance().clear();
    paths.writeDefaultConfig("component = net,1\n" + targetLine(testpaths::recorder(), "name=def"));
    paths.writeAppConfig("player", "component = net,11\n" + targetLine(testpaths::recorderTwin(), "name=app"));

    EXPECT_EQ(0x1u, vexlor_get_component_level("net"));
    EXPECT_EQ(1u, CRecorder::instance().calls("created", "def").size());

    vexlor_set_applicationname("player");
    EXPECT_EQ(0x3u, vexlor_get_component_level("net"));
    EXPECT_EQ(1u, CRecorder::instance().calls("destroyed", "def").size());
    ASSERT_TRUE(syslog.waitFor("logtarget-container: Watching application-specific config-file \"" +
                               paths.appConfig("player") + "\" for changes"));

    paths.writeAppConfig("player", "component = net,111\n" + targetLine(testpaths::recorderTwin(), "name=app"));
    ASSERT_TRUE(waitUntil([] { return vexlor_get_component_level("net") == 0x7u; }));
    vexlor(vexlor_get_component_by_name("net"), VX_CRIT, "now on");
    EXPECT_EQ(std::vector<std::string>{"now on"}, CRecorder::instance().messages("app"));
}

// A directory or a FIFO where the default file should be: reported once and treated as missing.
// A FIFO must not block the first call; files written inside the directory must not make the
// watcher spin (it used to re-read the same unreadable event for ever, with two syslog lines
// each time): count the lines, not the time.
TEST(ConfiguredStartTest, SomethingOtherThanAFileAtTheConfigurationPathIsReportedOnce)
{
    for (const bool fifo : {false, true}) {
        SCOPED_TRACE(fifo ? "FIFO" : "directory");
        pid_t child = fork();
        if (child == 0) {
            // A process of its own for each, since the main instance starts once per process.
            const CCompiledPaths paths;
            const CSyslogCapture syslog;
            const std::string path = paths.defaultConfig();
            if ((fifo ? mkfifo(path.c_str(), 0600) : mkdir(path.c_str(), 0700)) != 0) {
                _exit(10);
            }
            auto first = std::async(std::launch::async, [] { return vexlor_get_component_level("net"); });
            if (first.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
                _exit(11);  // blocked in the open
            }
            if (!fifo) {
                for (int i = 0; i < 20; ++i) {
                    writeFile(path + "/inside" + std::to_string(i), "x");
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(300));
            }
            const int reports = syslog.count("logtarget-container: vexlor-config \"" + path +
                                              "\" is not a regular file - treated as missing", LOG_ERR);
            const auto messages = syslog.messages().size();
            _exit(reports == 1 && messages < 10 ? 0 : 12);
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(0, WEXITSTATUS(status));
    }
}

}  // namespace
