// The log path of the main instance: the nine record fields (the pid also after fork), the filter,
// the message cut, the syslog-style variant, function tracing and hex dumps.
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <tuple>
#include <unistd.h>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "core/CVexlor.h"
#include "testPaths.h"

namespace {

using Strings = std::vector<std::string>;

class CVexlorLogTest : public ::testing::Test {
protected:
    void SetUp() override { m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec")); }

    static std::vector<CRecordedCall> records() { return CRecorder::instance().calls("log", "rec"); }
    static Strings messages() { return CRecorder::instance().messages("rec"); }

    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};

TEST_F(CVexlorLogTest, DeliversTheNineFieldsOfEachRecordThatPassesTheFilter)
{
    vexlor_component* net = vexlor_create_component("net", VX_ERR, "");
    timeval before{};
    gettimeofday(&before, nullptr);
    vexlor(net, VX_ERR, "hello %d", 42);
    timeval after{};
    gettimeofday(&after, nullptr);
    vexlor(net, VX_INFO, "info");
    vexlor(nullptr, VX_ERR, "no component");
    vexlor(net, nullptr, "no level");
    vexlor(net, vexlor_level_create(40), "mask 0");
    vexlor(net, VX_ALL, "all");
    vexlor(net, VX_ERR, "%s", std::string(3000, 'x').c_str());
    EXPECT_EQ((Strings{"hello 42", "all", std::string(2047, 'x')}), messages());

    const CRecordedCall record = records().at(0);
    const auto micros = [](long long seconds, long long microseconds) { return seconds * 1000000 + microseconds; };
    EXPECT_EQ(getpid(), record.pid);
    EXPECT_EQ(0, record.depth);
    EXPECT_LE(micros(before.tv_sec, before.tv_usec), micros(record.seconds, record.microseconds));
    EXPECT_GE(micros(after.tv_sec, after.tv_usec), micros(record.seconds, record.microseconds));
    EXPECT_EQ(VX_ERR, record.level);
    EXPECT_EQ("<no name>", record.threadName);
    EXPECT_EQ("net", record.componentName);
    EXPECT_EQ("", record.functionName);

    // The library caches the pid: a fork child must not log under its parent's.
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        // No gtest assertion in the child: its result is the exit status.
        vexlor(net, VX_ERR, "child");
        _exit(records().back().pid == getpid() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

// Unfiltered towards syslog, filtered towards the targets.
TEST_F(CVexlorLogTest, SyslogStyleCallWritesToSyslogWithoutSyslogTarget)
{
    vexlor_component* disk = vexlor_create_component("disk", VX_ERR, "");
    vexlor_syslog(disk, VX_ERR, "disk %d%% full", 90);
    vexlor_syslog(disk, VX_ENTERLEAVE, "filtered");
    vexlor_syslog(nullptr, nullptr, "no level");
    EXPECT_EQ(1, m_syslog.count("disk 90% full", LOG_ERR));
    EXPECT_EQ(1, m_syslog.count("filtered", LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count("no level", LOG_DEBUG));
    EXPECT_EQ(Strings{"disk 90% full"}, messages());
}

TEST_F(CVexlorLogTest, SyslogStyleCallLeavesSyslogToASyslogTarget)
{
    m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec, syslog=1"));
    vexlor_syslog(vexlor_create_component("disk", VX_ERR, ""), VX_ERR, "disk full");
    EXPECT_EQ(0, m_syslog.count("disk full"));
    EXPECT_EQ(Strings{"disk full"}, messages());
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

    std::vector<std::tuple<std::string, std::string, int>> seen;  // message, function, depth
    for (const CRecordedCall& record : records()) {
        seen.emplace_back(record.message, record.functionName, record.depth);
        EXPECT_EQ(record.message == "inside" || record.message == "after" ? VX_INFO : VX_ENTERLEAVE, record.level);
    }
    const decltype(seen) expected{
        {"entering", "a", 0}, {"inside", "c", 3}, {"leaving", "b", 1}, {"leaving", "a", 0},
        {"after", "", 0},     {"leaving", "", -1}, {"entering", "x", -1},
    };
    EXPECT_EQ(expected, seen);
}

// 16 bytes a line, a short last line padded to the same column, 0x20 to 0x7f shown as they are;
// null data gives "<NULL>" unless a null component or level stops the dump first.
TEST_F(CVexlorLogTest, DumpsLinesByteExact)
{
    vexlor_component* app = vexlor_create_component("app", VX_DEBUG, "");
    const unsigned char hello[] = {0x48, 0x65, 0x6c, 0x6c, 0x6f, 0x2c, 0x20, 0x77, 0x6f, 0x72,
                                   0x6c, 0x64, 0x21, 0x0a, 0x00, 0x01, 0x7e, 0x80, 0xff, 0x41};
    vexlor_dump(app, VX_DEBUG, hello, sizeof hello);
    const unsigned char edge[] = "\x1f !0~\x7f\x80\xff" "abcdefgh";
    vexlor_dump(app, VX_DEBUG, edge, 16);
    vexlor_dump(app, VX_DEBUG, edge, 0);
    vexlor_dump(nullptr, VX_DEBUG, nullptr, 3);
    vexlor_dump(app, nullptr, nullptr, 3);
    vexlor_dump(app, VX_DEBUG, nullptr, 0);

    const std::string edgeLine = "0x00000000 - 1f 20 21 30 7e 7f 80 ff 61 62 63 64 65 66 67 68 | . !0~\x7f..abcdefgh";
    const Strings expected{"0x00000000 - 48 65 6c 6c 6f 2c 20 77 6f 72 6c 64 21 0a 00 01 | Hello, world!...",
                           "0x00000010 - 7e 80 ff 41 " + std::string(36, ' ') + "| ~..A", edgeLine, "<NULL>"};
    EXPECT_EQ(expected, messages());
    for (const CRecordedCall& record : records()) {
        EXPECT_EQ(VX_DEBUG, record.level);
    }
    // The line is replaced, not appended to; more than 16 bytes show only the first 16.
    std::string line = "old content";
    CVexlor::formatDumpLine(line, 0, edge, 17);
    EXPECT_EQ(edgeLine, line);
}

}  // namespace
