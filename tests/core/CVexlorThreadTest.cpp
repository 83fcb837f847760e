// Thread names: the default name, vexlor_init and vexlor_done with their start and end records,
// and records of concurrently logging threads.
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "testPaths.h"

namespace {

class CVexlorThreadTest : public ::testing::Test {
protected:
    void SetUp() override { m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec")); }

    static std::vector<CRecordedCall> records() { return CRecorder::instance().calls("log", "rec"); }

    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};

TEST_F(CVexlorThreadTest, InitAndDoneNameTheCallingThread)
{
    vexlor_component* app = vexlor_create_component("app", VX_ALL, "");
    vexlor(app, VX_INFO, "fresh");

    // A null component names the thread but announces nothing.
    vexlor_init(nullptr, "worker");
    vexlor(app, VX_INFO, "named");
    vexlor_init(app, "renamed");
    vexlor(app, VX_INFO, "after rename");
    vexlor_done(app);
    vexlor(app, VX_INFO, "after done");
    vexlor_init(app, "again");

    const auto logs = records();
    std::vector<std::pair<std::string, std::string>> seen;
    for (const CRecordedCall& record : logs) {
        seen.emplace_back(record.message, record.threadName);
    }
    const std::vector<std::pair<std::string, std::string>> expected{
        {"fresh", "<no name>"},
        {"named", "worker"},
        {"----- Thread renamed started.", "renamed"},
        {"after rename", "renamed"},
        {"----- Thread renamed ending.", "renamed"},
        {"after done", "<thrd done>"},
        {"----- Thread again started.", "again"},
    };
    EXPECT_EQ(expected, seen);
    for (const CRecordedCall& record : logs) {
        if (record.message.compare(0, 6, "----- ") == 0) {
            EXPECT_EQ(VX_ENTERLEAVE, record.level) << record.message;
        }
    }
    // Only the first init of the process opens syslog.
    EXPECT_EQ(1u, m_syslog.openlogCalls().size());
}

TEST_F(CVexlorThreadTest, AnnouncesOnlyWhenTheComponentEnablesEnterLeave)
{
    vexlor_component* quiet = vexlor_create_component("quiet", VX_INFO, "");
    vexlor_init(quiet, "worker");
    vexlor_done(quiet);
    vexlor_done(nullptr);
    vexlor(quiet, VX_INFO, "x");
    const auto logs = records();
    ASSERT_EQ(1u, logs.size());
    EXPECT_EQ("<thrd done>", logs[0].threadName);
}

TEST_F(CVexlorThreadTest, EachRecordCarriesItsOwnThreadsName)
{
    vexlor_component* app = vexlor_create_component("app", VX_INFO, "");
    constexpr int PER_THREAD = 200;
    auto worker = [app](const char* name) {
        vexlor_init(app, name);
        for (int i = 0; i < PER_THREAD; ++i) {
            vexlor(app, VX_INFO, "%s", name);
        }
    };
    std::thread alpha(worker, "alpha");
    std::thread beta(worker, "beta");
    alpha.join();
    beta.join();
    vexlor(app, VX_INFO, "main");

    int alphaCount = 0;
    int betaCount = 0;
    for (const CRecordedCall& record : records()) {
        EXPECT_EQ(record.message == "main" ? "<no name>" : record.message, record.threadName);
        alphaCount += record.message == "alpha" ? 1 : 0;
        betaCount += record.message == "beta" ? 1 : 0;
    }
    EXPECT_EQ(PER_THREAD, alphaCount);
    EXPECT_EQ(PER_THREAD, betaCount);
}

}  // namespace
