// The main instance. Its log path: the nine record fields (64-bit seconds, the pid also after
// fork), the filter, the message cut, the syslog-style variant, function tracing and hex dumps.
// Its life: thread names with their start and end records, the application name and the syslog
// identity, and the _novexlor pair.
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <sys/time.h>
#include <syslog.h>
#include <thread>
#include <tuple>

#include "CMainInstanceTest.h"
#include "runInChild.h"

static_assert(sizeof(time_t) == 8, "32-bit processors need _TIME_BITS=64 (see cmake/toolchains)");

namespace {

// While not negative, the seconds that gettimeofday reports (with 999999 microseconds).
std::atomic<long long> fixedSeconds{-1};

}  // namespace

// The library reads a chosen time without the machine's clock being touched. With 64-bit time on
// a 32-bit processor the C library's header names this definition __gettimeofday64, the entry
// point that the library calls.
extern "C" int gettimeofday(timeval* __restrict tv, void* __restrict /*tz*/) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const long long seconds = fixedSeconds;
    tv->tv_sec = seconds >= 0 ? static_cast<time_t>(seconds) : now.tv_sec;
    tv->tv_usec = seconds >= 0 ? 999999 : now.tv_nsec / 1000;
    return 0;
}

namespace {

using Strings = std::vector<std::string>;
using CVexlorLogTest = CMainInstanceTest;
using CVexlorLifecycleTest = CMainInstanceTest;

TEST_F(CVexlorLogTest, DeliversTheNineFieldsOfEachRecordThatPassesTheFilter)
{
    vexlor_component* net = vexlor_create_component("net", VX_ERR, "");
    fixedSeconds = 253402300799LL;  // 9999-12-31 23:59:59, past both 32-bit limits
    vexlor(net, VX_ERR, "hello %d", 42);
    fixedSeconds = -1;
    for (vexlor_level* filtered : {VX_INFO, vexlor_level_create(40), static_cast<vexlor_level*>(nullptr)}) {
        vexlor(net, filtered, "filtered");
    }
    vexlor(nullptr, VX_ERR, "no component");
    vexlor(net, VX_ALL, nullptr);  // a null format is an empty message
    vexlor(net, VX_ERR, "%s", std::string(3000, 'x').c_str());
    EXPECT_EQ((Strings{"hello 42", "", std::string(2047, 'x')}), messages());

    const CRecordedCall r = records().at(0);
    EXPECT_EQ(std::make_tuple(getpid(), 0, 253402300799LL, 999999, VX_ERR),
              std::make_tuple(r.pid, r.depth, r.seconds, r.microseconds, r.level));
    EXPECT_EQ((Strings{"<no name>", "net", ""}), (Strings{r.threadName, r.componentName, r.functionName}));

    // The library caches the pid: a fork child must not log under its parent's.
    EXPECT_EQ(0, runInChild([net] {
                  vexlor(net, VX_ERR, "child");
                  return records().back().pid == getpid() ? 0 : 1;
              }));
}

// Unfiltered towards syslog, at the level's priority (debug without one); filtered towards the
// targets; left to a target that writes to syslog.
TEST_F(CVexlorLogTest, SyslogStyleCallWritesToSyslogUnlessATargetDoes)
{
    m_paths.writeAppConfig("app", targetLine(testpaths::recorderTwin(), "name=sys, syslog=1"));
    vexlor_component* disk = vexlor_create_component("disk", VX_ERR, "");
    vexlor_syslog(disk, VX_ERR, "disk %d%% full", 90);
    vexlor_syslog(disk, VX_ENTERLEAVE, "filtered");
    vexlor_syslog(nullptr, nullptr, nullptr);  // a null format sends an empty message
    vexlor_set_applicationname("app");
    vexlor_syslog(disk, VX_ERR, "taken over");
    EXPECT_EQ(1, m_syslog.count("disk 90% full", LOG_ERR));
    EXPECT_EQ(1, m_syslog.count("filtered", LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count("", LOG_DEBUG));
    EXPECT_EQ(0, m_syslog.count("taken over"));
    EXPECT_EQ(Strings{"disk 90% full"}, messages());
    EXPECT_EQ(Strings{"taken over"}, CRecorder::instance().messages("sys"));
}

// "entering" carries the caller's depth, "leaving" the same; the stack is kept when the tracing
// records are filtered out, and nothing checks that enters and leaves match.
TEST_F(CVexlorLogTest, TracingRecordsAndOthersCarryTheInnermostFunctionAndDepth)
{
    vexlor_component* app = vexlor_create_component("app", VX_ALL, "");
    vexlor_component* errors = vexlor_create_component("errors", VX_ERR, "");
    vexlor_enter_function(app, "a");
    vexlor_enter_function(errors, "b");
    vexlor_enter_function(nullptr, "c");
    vexlor(app, VX_INFO, "inside");
    EXPECT_THROW(vexlor_enter_function(app, nullptr), std::logic_error);
    vexlor_leave_function(nullptr);
    vexlor_leave_function(app);
    vexlor_leave_function(app);
    vexlor(app, VX_INFO, "after");
    // A fresh thread, so that its record starts empty.
    std::thread([app] {
        vexlor_leave_function(app);
        vexlor_enter_function(app, "x");
    }).join();

    std::vector<std::tuple<std::string, std::string, int, vexlor_level*>> seen;
    for (const CRecordedCall& record : records()) {
        seen.emplace_back(record.message, record.functionName, record.depth, record.level);
    }
    const decltype(seen) expected{
        {"entering", "a", 0, VX_ENTERLEAVE},  {"inside", "c", 3, VX_INFO}, {"leaving", "b", 1, VX_ENTERLEAVE},
        {"leaving", "a", 0, VX_ENTERLEAVE},   {"after", "", 0, VX_INFO},   {"leaving", "", -1, VX_ENTERLEAVE},
        {"entering", "x", -1, VX_ENTERLEAVE},
    };
    EXPECT_EQ(expected, seen);
}

// 16 bytes a line, a short last line padded to the same column, 0x20 to 0x7f shown as they are;
// null data gives "<NULL>" unless a null component or level stops the dump first.
TEST_F(CVexlorLogTest, DumpsLinesByteExact)
{
    vexlor_component* app = vexlor_create_component("app", VX_DEBUG, "");
    const unsigned char data[] = "\x1f !0~\x7f\x80\xff"
                                 "abcdefgh"
                                 "Hi";
    vexlor_dump(app, VX_DEBUG, data, 18);
    vexlor_dump(app, VX_DEBUG, data, 0);
    vexlor_dump(nullptr, VX_DEBUG, nullptr, 3);
    vexlor_dump(app, nullptr, nullptr, 3);
    vexlor_dump(app, VX_DEBUG, nullptr, 0);
    EXPECT_EQ((Strings{"0x00000000 - 1f 20 21 30 7e 7f 80 ff 61 62 63 64 65 66 67 68 | . !0~\x7f..abcdefgh",
                       "0x00000010 - 48 69 " + std::string(42, ' ') + "| Hi", "<NULL>"}),
              messages());
    EXPECT_EQ(VX_DEBUG, records().at(0).level);
}

// Start and end records only where the component enables VX_ENTERLEAVE. A name set before the
// first init yields to the program name that this init opens syslog with; set later, it is the
// identity. syslog keeps the identity's pointer and uses it until the process ends: also in an
// atexit handler registered before the first library call, which runs after the instance is gone,
// and after a change to a longer name. (Under AddressSanitizer a freed text is a failure in itself.)
TEST_F(CVexlorLifecycleTest, InitAndDoneNameOnlyTheCallingThreadAndTheIdentityOutlivesTheInstance)
{
    std::atexit([] {
        const char* identity = capturedIdentity();
        if (identity == nullptr || std::string(identity) != "a-longer-application-name") {
            _exit(3);
        }
    });
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
    vexlor_set_applicationname("a-longer-application-name");

    std::vector<std::tuple<std::string, std::string, vexlor_level*>> seen;  // message, thread name, level
    for (const CRecordedCall& record : records()) {
        seen.emplace_back(record.message, record.threadName, record.level);
    }
    const decltype(seen) expected{
        {"other's", "other", VX_INFO},
        {"other done", "<thrd done>", VX_INFO},
        {"fresh", "<no name>", VX_INFO},
        {"named", "worker", VX_INFO},
        {"----- Thread renamed started.", "renamed", VX_ENTERLEAVE},
        {"----- Thread renamed ending.", "renamed", VX_ENTERLEAVE},
        {"after done", "<thrd done>", VX_INFO},
    };
    EXPECT_EQ(expected, seen);
    Strings identities;
    for (const COpenlogCall& call : m_syslog.openlogCalls()) {
        identities.push_back(call.ident);
        EXPECT_EQ(std::make_pair(LOG_PID | LOG_NDELAY, LOG_USER), std::make_pair(call.option, call.facility));
    }
    EXPECT_EQ((Strings{"app", program_invocation_short_name, "a-longer-application-name"}), identities);
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
