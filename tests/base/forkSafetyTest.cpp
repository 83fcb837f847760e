// fork() while other threads log: no child may hang, neither when it logs nor when it only exits
// (which destroys the library's instance, and with it the targets).
#include <atomic>
#include <thread>
#include <unistd.h>

#include "CMainInstanceTest.h"
#include "core/CVexlor.h"
#include "runInChild.h"

namespace {

const pid_t TEST_PROCESS = getpid();

}  // namespace

// LeakSanitizer asks this before its check at exit. A child inherits the memory of the parent's
// other threads without the threads, so their thread-local records would count as leaks there.
extern "C" int __lsan_is_turned_off() { return getpid() != TEST_PROCESS ? 1 : 0; }

namespace {

using ForkSafetyTest = CMainInstanceTest;

TEST_F(ForkSafetyTest, ChildrenOfAProcessThatLogsOnOtherThreadsNeverHang)
{
    m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec") + "component = busy, 11111111\n");
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
    // Half log once, half only exit; exit runs the library's destructors either way.
    int failed = -1;
    for (int i = 0; i < 20 && failed < 0; ++i) {
        const int status = runInChild(
            [&]() -> int {
                CRecorder::instance().clear();  // what the parent's threads left in this copy
                if (i % 2 == 0) {
                    vexlor(busy, VX_INFO, "from child");
                }
                exit(messages() == std::vector<std::string>(i % 2 == 0 ? 1 : 0, "from child") ? 0 : 1);
            },
            EForkMoment::NOW);
        failed = status != 0 ? i : -1;
    }
    stop = true;
    for (std::thread& logger : loggers) {
        logger.join();
    }
    EXPECT_EQ(-1, failed) << "a child hung or failed";
}

}  // namespace
