// The log path of the main instance: filter, the nine record fields, the message cut, and the
// syslog-style variant with and without a syslog target.
#include <gtest/gtest.h>
#include <string>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "testPaths.h"

namespace {

class CVexlorLogTest : public ::testing::Test {
protected:
    void useTarget(const std::string& parameters) const
    {
        m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), parameters));
    }

    static std::vector<CRecordedCall> records() { return CRecorder::instance().calls("log", "rec"); }

    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};

TEST_F(CVexlorLogTest, DeliversAllNineFieldsOfARecord)
{
    useTarget("name=rec");
    vexlor_component* net = vexlor_create_component("net", VX_INFO, "");
    timeval before{};
    gettimeofday(&before, nullptr);
    vexlor(net, VX_INFO, "hello %d", 42);
    timeval after{};
    gettimeofday(&after, nullptr);

    const auto logs = records();
    ASSERT_EQ(1u, logs.size());
    const CRecordedCall& record = logs[0];
    EXPECT_EQ(getpid(), record.pid);
    EXPECT_EQ(0, record.depth);
    EXPECT_GE(record.seconds, before.tv_sec);
    EXPECT_LE(record.seconds, after.tv_sec);
    EXPECT_GE(record.microseconds, 0);
    EXPECT_LT(record.microseconds, 1000000);
    EXPECT_EQ(VX_INFO, record.level);
    EXPECT_EQ("<no name>", record.threadName);
    EXPECT_EQ("net", record.componentName);
    EXPECT_EQ("", record.functionName);
    EXPECT_EQ("hello 42", record.message);
}

TEST_F(CVexlorLogTest, FiltersByComponentMaskAndNullArguments)
{
    useTarget("name=rec");
    vexlor_component* net = vexlor_create_component("net", VX_ERR, "");
    vexlor(net, VX_INFO, "info");
    vexlor(nullptr, VX_ERR, "no component");
    vexlor(net, nullptr, "no level");
    vexlor(net, VX_ERR, "error");
    vexlor(net, VX_ALL, "all");
    vexlor(net, vexlor_level_create(40), "never");
    EXPECT_EQ((std::vector<std::string>{"error", "all"}), CRecorder::instance().messages("rec"));
}

TEST_F(CVexlorLogTest, CutsLongMessagesTo2047Characters)
{
    useTarget("name=rec");
    vexlor_component* net = vexlor_create_component("net", VX_INFO, "");
    const std::string longText(3000, 'x');
    vexlor(net, VX_INFO, "%s", longText.c_str());
    const auto logs = records();
    ASSERT_EQ(1u, logs.size());
    EXPECT_EQ(std::string(2047, 'x'), logs[0].message);
}

TEST_F(CVexlorLogTest, SyslogStyleCallWritesToSyslogWithoutSyslogTarget)
{
    useTarget("name=rec");
    vexlor_component* disk = vexlor_create_component("disk", VX_ERR, "");
    vexlor_syslog(disk, VX_ERR, "disk %d%% full", 90);
    EXPECT_EQ(1, m_syslog.count("disk 90% full", LOG_ERR));
    EXPECT_EQ((std::vector<std::string>{"disk 90% full"}), CRecorder::instance().messages("rec"));

    // Unfiltered towards syslog, filtered towards the targets.
    vexlor_component* quiet = vexlor_create_component("quiet", nullptr, "");
    vexlor_syslog(quiet, VX_ENTERLEAVE, "quiet");
    vexlor_syslog(nullptr, nullptr, "no level");
    EXPECT_EQ(1, m_syslog.count("quiet", LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count("no level", LOG_DEBUG));
    EXPECT_EQ(1u, CRecorder::instance().messages("rec").size());
}

TEST_F(CVexlorLogTest, SyslogStyleCallLeavesSyslogToASyslogTarget)
{
    useTarget("name=rec, syslog=1");
    vexlor_component* disk = vexlor_create_component("disk", VX_ERR, "");
    vexlor_syslog(disk, VX_ERR, "disk %d%% full", 90);
    EXPECT_EQ(0, m_syslog.count("disk 90% full"));
    EXPECT_EQ((std::vector<std::string>{"disk 90% full"}), CRecorder::instance().messages("rec"));
}

}  // namespace
