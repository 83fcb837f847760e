// The instance's life: thread names with their start and end records, the application name and
// the syslog identity, the _novexlor pair, and threads that go on logging while the process exits.
#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <syslog.h>
#include <thread>
#include <tuple>

#include "CMainInstanceTest.h"
#include "runInChild.h"

namespace {

using CVexlorLifecycleTest = CMainInstanceTest;

// Start and end records only where the component enables VX_ENTERLEAVE; only the first init of
// the process opens syslog.
TEST_F(CVexlorLifecycleTest, InitAndDoneNameOnlyTheCallingThread)
{
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
    vexlor_done(nullptr);
    vexlor(app, VX_INFO, "after done");
    vexlor_init(app, "again");

    std::vector<std::tuple<std::string, std::string, vexlor_level*>> seen;  // message, thread name, level
    for (const CRecordedCall& record : records()) {
        seen.emplace_back(record.message, record.threadName, record.level);
    }
    const decltype(seen) expected{
        {"other's", "other", VX_INFO},       {"other done", "<thrd done>", VX_INFO},
        {"fresh", "<no name>", VX_INFO},     {"named", "worker", VX_INFO},
        {"----- Thread renamed started.", "renamed", VX_ENTERLEAVE},
        {"----- Thread renamed ending.", "renamed", VX_ENTERLEAVE},
        {"after done", "<thrd done>", VX_INFO}, {"----- Thread again started.", "again", VX_ENTERLEAVE},
    };
    EXPECT_EQ(expected, seen);
    EXPECT_EQ(1u, m_syslog.openlogCalls().size());
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

// A name set before the first init yields to the program name that this init opens syslog with;
// set later, it is the identity.
TEST_F(CVexlorLifecycleTest, ApplicationNameBecomesTheSyslogIdentity)
{
    const char* stored = vexlor_set_applicationname("app");
    EXPECT_EQ(vexlor_get_application_name().c_str(), stored);
    EXPECT_THROW(vexlor_set_applicationname(nullptr), std::logic_error);
    EXPECT_EQ("app", vexlor_get_application_name());

    vexlor_init(nullptr, "main");
    vexlor_set_applicationname("later");
    std::vector<std::tuple<std::string, int, int>> opened;  // identity, options, facility
    for (const COpenlogCall& call : m_syslog.openlogCalls()) {
        opened.emplace_back(call.ident, call.option, call.facility);
    }
    const int options = LOG_PID | LOG_NDELAY;
    const decltype(opened) expected{{"app", options, LOG_USER},
                                    {program_invocation_short_name, options, LOG_USER},
                                    {"later", options, LOG_USER}};
    EXPECT_EQ(expected, opened);
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

TEST_F(CVexlorLifecycleTest, ThreadsThatLogWhileTheProcessExitsDoNotBringItDown)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // The level records are freed when the library is finalised, and a thread that logs on
    // still reads its level's mask: harmless with the C library's allocator (the memory stays
    // mapped, and the instance it then reaches has no targets), but reported by the sanitizers.
    GTEST_SKIP() << "late logging reads level records freed at finalisation";
#endif
    // Several children: the logging thread meets the exit at different points.
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(0, runInChild([]() -> int {
            vexlor_component* net = vexlor_create_component("net", VX_ALL, "");
            std::atomic<bool> started{false};
            std::thread([&] {
                for (unsigned int i = 0;; ++i) {
                    vexlor(net, VX_INFO, "late %u", i);
                    started = true;
                }
            }).detach();
            while (!started) {
                std::this_thread::yield();
            }
            exit(0);  // runs the library's destructors while the thread logs on
        })) << "round " << round;
    }
}

}  // namespace
