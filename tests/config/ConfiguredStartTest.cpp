// The main instance's configured start: the first exported call reads the default file, and a
// new application name switches to that application's file and keeps watching it.
#include <gtest/gtest.h>
#include <string>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
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

}  // namespace
