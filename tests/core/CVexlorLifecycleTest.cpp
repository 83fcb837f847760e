// The instance's life: thread names with their start and end records, the application name and
// the syslog identity, and the _novexlor pair.
#include <cstdlib>
#include <stdexcept>
#include <syslog.h>
#include <thread>
#include <tuple>

#include "CMainInstanceTest.h"

namespace {

using CVexlorLifecycleTest = CMainInstanceTest;

// Start and end records only where the component enables VX_ENTERLEAVE. A name set before the
// first init yields to the program name that this init opens syslog with; set later, it is the
// identity.
TEST_F(CVexlorLifecycleTest, InitAndDoneNameOnlyTheCallingThread)
{
    EXPECT_STREQ(vexlor_set_applicationname("app"), vexlor_get_application_name().c_str());
    EXPECT_THROW(vexlor_set_applicationname(nullptr), std::logic_error);
    vexlor_component* app = vexlor_create_component("app", VX_ALL, "");
    vexlor_component* quiet = vexlor_create_component("quiet", VX_INFO, "");
    std::thread([&] {
        vexlor_init(quiet, "other");
        vexlor(app, VX_INFO, "other's");
        vexlor_done(quiet);
        vexlor(app, VX_INFO, "other done");
    }).join();
    vexlor(app, VX_INFO, "fresh");
    vexlor_init(nullptr, "worker");
    vexlor(app, VX_INFO, "named");
    vexlor_init(app, "renamed");
    vexlor_init(app, nullptr);  // a caller error: the name stays
    vexlor_done(app);
    vexlor(app, VX_INFO, "after done");
    vexlor_set_applicationname("later");

    std::vector<std::tuple<std::string, std::string, vexlor_level*>> seen;  // message, thread name, level
    for (const CRecordedCall& record : records()) {
        seen.emplace_back(record.message, record.threadName, record.level);
    }
    const decltype(seen) expected{
        {"other's", "other", VX_INFO},       {"other done", "<thrd done>", VX_INFO},
        {"fresh", "<no name>", VX_INFO},     {"named", "worker", VX_INFO},
        {"----- Thread renamed started.", "renamed", VX_ENTERLEAVE},
        {"----- Thread renamed ending.", "renamed", VX_ENTERLEAVE}, {"after done", "<thrd done>", VX_INFO},
    };
    EXPECT_EQ(expected, seen);
    std::vector<std::tuple<std::string, int, int>> opened;  // identity, options, facility
    for (const COpenlogCall& call : m_syslog.openlogCalls()) {
        opened.emplace_back(call.ident, call.option, call.facility);
    }
    const int options = LOG_PID | LOG_NDELAY;
    EXPECT_EQ((decltype(opened){{"app", options, LOG_USER}, {program_invocation_short_name, options, LOG_USER},
                                {"later", options, LOG_USER}}),
              opened);
}

// syslog keeps the identity's pointer and uses it until the process ends: also in an atexit
// handler registered before the first library call, which runs after the instance is gone, and
// after a change to a longer name. (Under AddressSanitizer a freed text is a failure in itself.)
TEST_F(CVexlorLifecycleTest, SyslogIdentityStaysValidAfterTheInstanceIsGone)
{
    std::atexit([] {
        const char* identity = capturedIdentity();
        if (identity == nullptr || std::string(identity) != "a-longer-application-name") {
            _exit(3);
        }
    });
    vexlor_set_applicationname("app");
    vexlor_set_applicationname("a-longer-application-name");
}

TEST_F(CVexlorLifecycleTest, NovexlorPairLeavesTheMainInstanceAlone)
{
    vexlor_init_novexlor("side");
    EXPECT_STREQ("app", vexlor_set_applicationname_novexlor("app"));
    EXPECT_EQ("app", m_syslog.openlogCalls().back().ident);
    // The main instance was never built: no configuration read, no target.
    EXPECT_TRUE(CRecorder::instance().calls().empty());
    EXPECT_EQ("[no-appname-set]", vexlor_get_application_name());
    // The thread name is shared by both instances.
    vexlor(vexlor_create_component("app", VX_ALL, ""), VX_INFO, "hello");
    EXPECT_EQ("side", records().at(0).threadName);
}

}  // namespace
