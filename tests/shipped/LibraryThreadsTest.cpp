// Every thread that the library or a shipped target starts carries a name and blocks every
// signal: a handler that the application installs for a process-directed signal never runs there.
#include <atomic>
#include <csignal>
#include <sys/syscall.h>
#include <unistd.h>

#include "CTargetFixture.h"

namespace {

std::atomic<long> handlerThread{0};

void recordThread(int) { handlerThread = syscall(SYS_gettid); }

TEST(LibraryThreadsTest, AreNamedAndNeverRunTheApplicationsSignalHandlers)
{
    CTempDir dir;
    dir.write("vexlor.cfg",
              "target = " VEXLOR_TEST_TARGET_FILE ", path=" + dir.path() +
                  "/a.log, buffer=4K\n"
                  "target = " VEXLOR_TEST_TARGET_REMOTE ", transport=udp, host=127.0.0.1, port=9\n"
                  "target = " VEXLOR_TEST_TARGET_CONTROL "\n");
    CLogTargetContainer container(dir.path(), true, nullptr);  // reads the file, starts the watcher
    container.log(42, 0, SECONDS, 7, VX_ERR, "main", "net", "", "a record for every target");
    for (const char* name : {"vexlor-config", "vexlor-file", "vexlor-remote", "vexlor-control"}) {
        EXPECT_TRUE(sleepsOf(name) >= 0 || std::getenv("VEXLOR_TEST_EMULATOR") != nullptr) << "no thread " << name;
    }

    // The test's own thread blocks the signal: any thread that left it unblocked would take it.
    signal(SIGUSR2, recordThread);
    sigset_t usr2;
    sigemptyset(&usr2);
    sigaddset(&usr2, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &usr2, nullptr);
    for (int i = 0; i < 20; ++i) {
        kill(getpid(), SIGUSR2);
        usleep(1000);
        EXPECT_EQ(handlerThread.load(), 0) << "ran on thread " << handlerThread.load();
    }
    pthread_sigmask(SIG_UNBLOCK, &usr2, nullptr);  // it waited, and now it runs here
    EXPECT_EQ(handlerThread.load(), syscall(SYS_gettid));
    signal(SIGUSR2, SIG_DFL);
}

}  // namespace
