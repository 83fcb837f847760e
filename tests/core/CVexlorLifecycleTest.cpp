// The instance's life: thread names with their start and end records, the application name and
// the syslog identity, the _novexlor pair, plug-ins that call the library while the first
// configuration is read, threads that go on logging while the process exits, and null inputs.
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <tuple>
#include <unistd.h>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "testPaths.h"

namespace {

using Strings = std::vector<std::string>;

class CVexlorLifecycleTest : public ::testing::Test {
protected:
    void SetUp() override { m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec")); }

    static std::vector<CRecordedCall> records() { return CRecorder::instance().calls("log", "rec"); }

    const std::string m_program = program_invocation_short_name;
    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};

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

    std::vector<std::pair<std::string, std::string>> seen;  // message, thread name
    for (const CRecordedCall& record : records()) {
        seen.emplace_back(record.message, record.threadName);
        EXPECT_EQ(record.message.rfind("-----", 0) == 0 ? VX_ENTERLEAVE : VX_INFO, record.level);
    }
    const decltype(seen) expected{
        {"other's", "other"},   {"other done", "<thrd done>"}, {"fresh", "<no name>"}, {"named", "worker"},
        {"----- Thread renamed started.", "renamed"},          {"----- Thread renamed ending.", "renamed"},
        {"after done", "<thrd done>"},                         {"----- Thread again started.", "again"},
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
// set later, it is the identity. The container switches to the application's own file.
TEST_F(CVexlorLifecycleTest, ApplicationNameBecomesTheSyslogIdentity)
{
    // Another library path, so that the switch to this file loads a target of its own.
    m_paths.writeAppConfig("app", targetLine(testpaths::recorderTwin(), "name=apprec"));
    const char* stored = vexlor_set_applicationname("app");
    EXPECT_EQ(vexlor_get_application_name().c_str(), stored);
    EXPECT_THROW(vexlor_set_applicationname(nullptr), std::logic_error);
    EXPECT_EQ("app", vexlor_get_application_name());
    EXPECT_EQ("apprec", CRecorder::instance().calls("created").back().target);

    vexlor_init(nullptr, "main");
    vexlor_set_applicationname("later");
    std::vector<std::tuple<std::string, int, int>> opened;  // identity, options, facility
    for (const COpenlogCall& call : m_syslog.openlogCalls()) {
        opened.emplace_back(call.ident, call.option, call.facility);
    }
    const int options = LOG_PID | LOG_NDELAY;
    const decltype(opened) expected{
        {"app", options, LOG_USER}, {m_program, options, LOG_USER}, {"later", options, LOG_USER}};
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

TEST_F(CVexlorLifecycleTest, TargetsMayCallTheLibraryWhileTheFirstConfigurationIsRead)
{
    // The nested target creates a component while it is created, that is while the main
    // instance is still being built by the first call below.
    m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=n, nested=1"));
    vexlor_component* net = vexlor_create_component("net", VX_INFO, "");
    ASSERT_NE(nullptr, vexlor_get_component_by_name("nested"));
    vexlor(net, VX_INFO, "outer");
    EXPECT_EQ((Strings{"outer", "nested:outer"}), CRecorder::instance().messages("n"));
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
        const pid_t child = fork();
        ASSERT_NE(-1, child);
        if (child == 0) {
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
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "round " << round << " status " << status;
    }
}

TEST_F(CVexlorLifecycleTest, NullInputsAreSurvived)
{
    vexlor_component* net = vexlor_create_component("net", VX_ALL, nullptr);
    EXPECT_EQ(nullptr, vexlor_create_component(nullptr, VX_ALL, ""));
    EXPECT_TRUE(m_syslog.contains("vexlor_create_component: no component name given (null) - no component created",
                                  LOG_ERR));
    EXPECT_EQ("", vexlor_get_name_by_component(nullptr));
    EXPECT_EQ(0u, vexlor_level_to_mask(nullptr));
    vexlor(net, VX_INFO, nullptr);
    vexlor_syslog(net, VX_INFO, nullptr);
    EXPECT_EQ((Strings{"", ""}), CRecorder::instance().messages("rec"));
}

}  // namespace
