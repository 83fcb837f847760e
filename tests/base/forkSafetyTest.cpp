// fork() while other threads log: no child may hang, neither when it logs nor when it only exits
// (which destroys the library's instance, and with it the targets).
#include <atomic>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "core/CVexlor.h"
#include "testPaths.h"

namespace {

const pid_t TEST_PROCESS = getpid();

}  // namespace

// LeakSanitizer asks this before its check at exit. A child inherits the memory of the parent's
// other threads without the threads, so their thread-local records would count as leaks there.
extern "C" int __lsan_is_turned_off()
{
    return getpid() != TEST_PROCESS ? 1 : 0;
}

namespace {

TEST(ForkSafetyTest, ChildrenOfAProcessThatLogsOnOtherThreadsNeverHang)
{
    const CCompiledPaths paths;
    const CSyslogCapture syslog;
    paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec") + "component = busy, 11111111\n");
    vexlor_component* busy = vexlor_create_component("busy", nullptr, "");
    std::atomic<bool> stop{false};
    std::vector<std::thread> loggers;
    for (int t = 0; t < 2; ++t) {
        loggers.emplace_back([&] {
            while (!stop) {
                vexlor(busy, VX_INFO, "from another thread");
                // The recorder keeps every record: forget them, under the container's lock like
                // every call of the recorder, so that a fork never finds its mutex taken.
                CVexlor::getInstance()->lockComponents();
                CRecorder::instance().clear();
                CVexlor::getInstance()->unlockComponents();
            }
        });
    }

    constexpr int CHILDREN = 20;
    std::vector<pid_t> children;
    for (int i = 0; i < CHILDREN; ++i) {
        const pid_t pid = fork();
        if (pid == 0) {
            // Half log once, half only exit; exit runs the library's destructors either way.
            CRecorder::instance().clear();  // what the parent's threads left in this copy
            if (i % 2 == 0) {
                vexlor(busy, VX_INFO, "from child");
            }
            const auto seen = CRecorder::instance().messages("rec");
            exit(seen == std::vector<std::string>(i % 2 == 0 ? 1 : 0, "from child") ? 0 : 1);
        }
        ASSERT_GT(pid, 0);
        children.push_back(pid);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }

    // The limit only keeps a hang from stopping the suite; a child normally ends at once.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    int ended = 0;
    int failed = 0;
    while (ended < CHILDREN && std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        const pid_t pid = waitpid(-1, &status, WNOHANG);
        if (pid > 0) {
            ++ended;
            failed += WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    for (const pid_t pid : children) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, WNOHANG);
    }
    stop = true;
    for (std::thread& logger : loggers) {
        logger.join();
    }
    EXPECT_EQ(CHILDREN, ended) << "children hung";
    EXPECT_EQ(0, failed);
}

}  // namespace
