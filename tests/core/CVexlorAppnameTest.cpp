// The application name: its default, storing it, the syslog identity it gives depending on the
// order with the first vexlor_init, and the _novexlor pair that leaves the main instance alone.
#include <cerrno>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <syslog.h>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "testPaths.h"

namespace {

class CVexlorAppnameTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec"));
        // Another library path, so that the switch to this file loads a target of its own.
        m_paths.writeAppConfig("app", targetLine(testpaths::recorderTwin(), "name=apprec"));
    }

    std::string lastIdentity() const
    {
        const auto calls = m_syslog.openlogCalls();
        return calls.empty() ? std::string() : calls.back().ident;
    }

    static std::vector<std::string> createdTargets()
    {
        std::vector<std::string> names;
        for (const CRecordedCall& call : CRecorder::instance().calls("created")) {
            names.push_back(call.target);
        }
        return names;
    }

    const std::string m_program = program_invocation_short_name;
    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};

TEST_F(CVexlorAppnameTest, StoresTheNameAndReopensSyslogUnderIt)
{
    EXPECT_EQ("[no-appname-set]", vexlor_get_application_name());
    const char* stored = vexlor_set_applicationname("app");
    EXPECT_STREQ("app", stored);
    EXPECT_EQ("app", vexlor_get_application_name());
    EXPECT_EQ(vexlor_get_application_name().c_str(), stored);

    const auto calls = m_syslog.openlogCalls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("app", calls[0].ident);
    EXPECT_EQ(LOG_PID | LOG_NDELAY, calls[0].option);
    EXPECT_EQ(LOG_USER, calls[0].facility);
    // The container switched to the application's own file.
    EXPECT_EQ((std::vector<std::string>{"rec", "apprec"}), createdTargets());

    EXPECT_THROW(vexlor_set_applicationname(nullptr), std::logic_error);
    EXPECT_EQ("app", vexlor_get_application_name());
}

TEST_F(CVexlorAppnameTest, NameSetBeforeFirstInitYieldsToTheProgramName)
{
    vexlor_set_applicationname("app");
    vexlor_init(nullptr, "main");
    EXPECT_EQ(m_program, lastIdentity());
    EXPECT_EQ("app", vexlor_get_application_name());
}

TEST_F(CVexlorAppnameTest, NameSetAfterFirstInitBecomesTheIdentity)
{
    vexlor_init(nullptr, "main");
    EXPECT_EQ(m_program, lastIdentity());
    vexlor_set_applicationname("app");
    EXPECT_EQ("app", lastIdentity());
}

TEST_F(CVexlorAppnameTest, NovexlorPairLeavesTheMainInstanceAlone)
{
    vexlor_init_novexlor("side");
    EXPECT_STREQ("app", vexlor_set_applicationname_novexlor("app"));
    // The main instance was never built: no configuration read, no target.
    EXPECT_TRUE(CRecorder::instance().calls().empty());
    const auto identities = m_syslog.openlogCalls();
    ASSERT_EQ(2u, identities.size());
    EXPECT_EQ(m_program, identities[0].ident);
    EXPECT_EQ("app", identities[1].ident);

    EXPECT_EQ("[no-appname-set]", vexlor_get_application_name());
    EXPECT_EQ((std::vector<std::string>{"rec"}), createdTargets());
    EXPECT_TRUE(CRecorder::instance().calls("appname").empty());
    // The thread name is shared by both instances; the novexlor init announced nothing.
    vexlor_component* app = vexlor_create_component("app", VX_ALL, "");
    vexlor(app, VX_INFO, "hello");
    const auto logs = CRecorder::instance().calls("log", "rec");
    ASSERT_EQ(1u, logs.size());
    EXPECT_EQ("side", logs[0].threadName);
}

}  // namespace
