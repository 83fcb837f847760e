// Fan-out of a container on a temporary directory: name order of every call that reaches all
// targets, the application name, and records of concurrent threads kept whole and in one order.
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "targets/CLogTargetContainer.h"
#include "testPaths.h"

namespace {

class CLogTargetContainerTest : public ::testing::Test {
protected:
    CLogTargetContainerTest()
    {
        CRecorder::instance().clear();
        // Line order differs from name order on purpose ("B" < "a" < "b" byte-wise).
        m_dir.write("vexlor.cfg", "target = " + testpaths::recorderTwin() + ", name=b\n" + "target = " +
                                      testpaths::recorder() + ", name=a\n" + "target = " + testpaths::hookless() +
                                      ", name=B\n");
        m_container.onCfgUpdate();
    }
    ~CLogTargetContainerTest() override { CRecorder::instance().clear(); }

    // The recorded calls of one kind as "<target>:<detail>", then all calls forgotten.
    static std::vector<std::string> take(const std::string& kind)
    {
        std::vector<std::string> result;
        for (const CRecordedCall& call : CRecorder::instance().calls(kind)) {
            result.push_back(call.target + ":" + (kind == "log" ? call.message : call.text));
        }
        CRecorder::instance().clear();
        return result;
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    CLogTargetContainer m_container{m_dir.path(), false, nullptr};
};

TEST_F(CLogTargetContainerTest, ReachesEveryTargetInByteWiseNameOrder)
{
    // Made before any application name was set.
    for (const CRecordedCall& created : CRecorder::instance().calls("created")) {
        EXPECT_EQ("", created.params.at("application-name")) << created.target;
    }
    CRecorder::instance().clear();

    const std::string thread = "worker";
    const std::string component = "net";
    const std::string function = "f";
    const std::string message = "hello";
    m_container.log(7, 2, 1234567890123LL, 999999, VX_WARN, thread, component, function, message);
    EXPECT_EQ((std::vector<std::string>{"B:hello", "a:hello", "b:hello"}), take("log"));

    vexlor_component net{"net", 0x1f, {}};
    m_container.onComponentAdded(&net);
    const auto announced = CRecorder::instance().calls("component");
    ASSERT_EQ(3u, announced.size());
    for (const CRecordedCall& call : announced) {
        EXPECT_EQ(&net, call.component);
    }
    EXPECT_EQ((std::vector<std::string>{"B:net", "a:net", "b:net"}), take("component"));

    // A new name: one re-read (nothing is created again), then every target hears it once.
    m_container.setAppname("app");
    EXPECT_TRUE(CRecorder::instance().calls("created").empty());
    EXPECT_EQ((std::vector<std::string>{"B:app", "a:app", "b:app"}), take("appname"));
    m_syslog.clear();
    m_container.setAppname("app");
    EXPECT_TRUE(CRecorder::instance().calls().empty());
    EXPECT_TRUE(m_syslog.messages().empty());
}

TEST_F(CLogTargetContainerTest, DeliversRecordsOfConcurrentThreadsWholeAndInOneOrder)
{
    CRecorder::instance().clear();
    constexpr int RECORDS = 2000;
    auto logger = [this](const std::string& prefix) {
        const std::string thread = prefix;
        const std::string empty;
        for (int i = 0; i < RECORDS; ++i) {
            m_container.log(1, 0, 0, 0, VX_INFO, thread, empty, empty, prefix + std::to_string(i));
        }
    };
    std::thread first(logger, "x");
    std::thread second(logger, "y");
    first.join();
    second.join();

    // One record reaches all three targets before the next record reaches any.
    const auto records = CRecorder::instance().calls("log");
    ASSERT_EQ(3u * 2 * RECORDS, records.size());
    for (std::size_t i = 0; i < records.size(); i += 3) {
        ASSERT_EQ("B", records[i].target) << i;
        ASSERT_EQ("a", records[i + 1].target) << i;
        ASSERT_EQ("b", records[i + 2].target) << i;
        ASSERT_EQ(records[i].message, records[i + 1].message) << i;
        ASSERT_EQ(records[i].message, records[i + 2].message) << i;
        ASSERT_EQ(records[i].message.substr(0, 1), records[i].threadName) << i;
    }
}

}  // namespace
