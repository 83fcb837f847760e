// The process id of a record is the logging process's own, also in a child made by fork.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "testPaths.h"

namespace {

int lastRecordPid()
{
    const auto logs = CRecorder::instance().calls("log", "rec");
    return logs.empty() ? 0 : logs.back().pid;
}

TEST(ProcessIdTest, ForkedChildRecordsCarryTheChildsPid)
{
    CCompiledPaths paths;
    CSyslogCapture syslog;
    paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec"));
    vexlor_component* app = vexlor_create_component("app", VX_INFO, "");
    vexlor(app, VX_INFO, "parent");
    ASSERT_EQ(getpid(), lastRecordPid());

    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        // Only async-signal-safe exits from here: no gtest assertion in the child.
        close(fds[0]);
        vexlor(app, VX_INFO, "child");
        const int pids[2] = {getpid(), lastRecordPid()};
        const bool written = write(fds[1], pids, sizeof pids) == static_cast<ssize_t>(sizeof pids);
        _exit(written ? 0 : 1);
    }
    close(fds[1]);
    int pids[2] = {0, 0};
    const ssize_t got = read(fds[0], pids, sizeof pids);
    close(fds[0]);
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ASSERT_EQ(static_cast<ssize_t>(sizeof pids), got);
    EXPECT_EQ(child, pids[0]);
    EXPECT_EQ(child, pids[1]);

    vexlor(app, VX_INFO, "parent again");
    EXPECT_EQ(getpid(), lastRecordPid());
}

}  // namespace
