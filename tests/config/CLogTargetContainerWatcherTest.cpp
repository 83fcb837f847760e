// The worker thread with real inotify: re-reads of the watched file, the watch moving to the
// application's file, the watch the kernel dropped, set-up failures and the end of the worker.
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "CCompiledPaths.h"
#include "CFailureSwitches.h"
#include "CRecorder.h"
#include "CSinkDouble.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "targets/CLogTargetContainer.h"
#include "testPaths.h"
#include "waitUntil.h"

namespace {

const std::string CHANGED = "logtarget-container: vexlor configfile changed, triggering re-read.";
const std::string NO_EVENT_HANDLING =
    "logtarget-container: unable to initialize event-handling - not worker thread will be spawned";
const std::string EXIT = "logtarget-container: got exit message - ending thread.";

std::string ignored(int watch)
{
    return "logtarget-container: got an inotify-event with IN_IGNORED set (mask=0x8000, watch-fd=" +
           std::to_string(watch) + ")";
}

int openDescriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

class CLogTargetContainerWatcherTest : public ::testing::Test {
protected:
    CLogTargetContainerWatcherTest() { CRecorder::instance().clear(); }

    std::unique_ptr<CLogTargetContainer> makeContainer()
    {
        return std::make_unique<CLogTargetContainer>(m_dir.path(), true, &m_sink);
    }

    static size_t calls(const std::string& kind, const std::string& target)
    {
        return CRecorder::instance().calls(kind, target).size();
    }

    static bool loaded(const std::string& target) { return calls("created", target) > calls("destroyed", target); }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    CSinkDouble m_sink;
};

TEST_F(CLogTargetContainerWatcherTest, RereadsTheRewrittenFileUntilItIsReplaced)
{
    const std::string file = m_dir.write("vexlor.cfg", targetLine(testpaths::recorder(), "name=a"));
    m_dir.write("vexlor-player.cfg", targetLine(testpaths::recorderTwin(), "name=p"));
    auto container = makeContainer();
    EXPECT_TRUE(loaded("a"));

    writeFile(file, targetLine(testpaths::recorderTwin(), "name=b"));
    ASSERT_TRUE(m_syslog.waitFor(CHANGED));
    EXPECT_EQ(1, m_syslog.count(CHANGED, LOG_DEBUG));
    ASSERT_TRUE(waitUntil([] { return loaded("b") && !loaded("a"); }));

    // Renaming another file over it removes the watched file, and with it the watch.
    const std::string replacement = m_dir.write("new.cfg", targetLine(testpaths::recorder(), "name=c"));
    ASSERT_EQ(0, std::rename(replacement.c_str(), file.c_str()));
    ASSERT_TRUE(m_syslog.waitFor(ignored(1)));
    EXPECT_EQ(1, m_syslog.count(ignored(1), LOG_DEBUG));
    writeFile(file, targetLine(testpaths::recorder(), "name=d"));

    // The stale watch can no longer be moved to the application's file. The rewrite above was
    // queued before this notification, so a watch would have reported it by now.
    container->setAppname("player");
    ASSERT_TRUE(m_syslog.waitFor("logtarget-container: Unable remove old inotify watch - errno=Invalid argument"));
    EXPECT_EQ(1, m_syslog.count("logtarget-container: removing old watch-descriptor 1", LOG_DEBUG));
    EXPECT_EQ(0, m_syslog.countContaining("Watching application-specific"));
    EXPECT_EQ(1, m_syslog.count(CHANGED));
    EXPECT_EQ(0u, calls("created", "d"));
}

TEST_F(CLogTargetContainerWatcherTest, SetAppnameMovesTheWatchToTheApplicationFile)
{
    const int descriptors = openDescriptors();
    const std::string defaultFile = m_dir.write("vexlor.cfg", targetLine(testpaths::recorder(), "name=a"));
    const std::string appFile = m_dir.write("vexlor-player.cfg", targetLine(testpaths::recorderTwin(), "name=p"));
    auto container = makeContainer();

    // A name without a file of its own leaves the watch where it is. The rewrite is queued after
    // the notification, so the worker has handled that when it re-reads (holding the lock).
    const std::string readingDefault = "logtarget-container: reading vexlor-config from file \"" + defaultFile + "\"";
    container->setAppname("other");
    EXPECT_EQ(2, m_syslog.count(readingDefault));
    writeFile(defaultFile, targetLine(testpaths::recorder(), "name=a"));
    ASSERT_TRUE(waitUntil([&] { return m_syslog.count(readingDefault) == 3; }));

    // Read and told on the calling thread, the watch moved on the worker.
    container->setAppname("player");
    EXPECT_EQ(1, m_syslog.count("logtarget-container: reading vexlor-config from file \"" + appFile + "\""));
    EXPECT_TRUE(loaded("p"));
    EXPECT_FALSE(loaded("a"));
    EXPECT_EQ(1u, calls("appname", "p"));
    EXPECT_EQ(1u, calls("appname", "a"));
    ASSERT_TRUE(m_syslog.waitFor("logtarget-container: Watching application-specific config-file \"" + appFile +
                                 "\" for changes"));
    EXPECT_EQ(1, m_syslog.count("logtarget-container: removing old watch-descriptor 1", LOG_DEBUG));
    ASSERT_TRUE(m_syslog.waitFor(ignored(1)));

    const size_t messages = m_syslog.messages().size();
    container->setAppname("player");
    EXPECT_EQ(messages, m_syslog.messages().size());
    EXPECT_EQ(1u, calls("appname", "p"));

    writeFile(appFile, targetLine(testpaths::recorderTwin(), "name=p") + targetLine(testpaths::recorder(), "name=q"));
    ASSERT_TRUE(waitUntil([] { return loaded("q"); }));
    EXPECT_EQ(2, m_syslog.count(CHANGED));
    m_syslog.clear();
    writeFile(defaultFile, targetLine(testpaths::recorder(), "name=z"));

    // The end: the worker stops through the pipe (after the rewrite of the default file, which it
    // no longer watches), every target goes without a message, and every descriptor is closed.
    container.reset();
    EXPECT_EQ(1, m_syslog.count(EXIT, LOG_DEBUG));
    EXPECT_EQ(0, m_syslog.count(CHANGED));
    EXPECT_EQ(0u, calls("created", "z"));
    EXPECT_FALSE(loaded("p") || loaded("q"));
    EXPECT_EQ(0, m_syslog.countContaining("unloading"));
    EXPECT_EQ(descriptors, openDescriptors());
}

TEST_F(CLogTargetContainerWatcherTest, WithoutDefaultFileThereIsNoWorkerToNotify)
{
    m_dir.write("vexlor-player.cfg", targetLine(testpaths::recorder(), "name=p"));
    auto container = makeContainer();
    EXPECT_EQ(1, m_syslog.count("unable to read vexlor-config \"" + m_dir.file("vexlor.cfg") + "\" - giving up.",
                                LOG_ERR));
    EXPECT_EQ(1, m_syslog.count(NO_EVENT_HANDLING, LOG_ERR));

    container->setAppname("player");
    EXPECT_TRUE(loaded("p"));
    EXPECT_EQ(1, m_syslog.count("logtarget-container: invalid pipe-fd (notify)", LOG_ERR));
    EXPECT_EQ(1, m_syslog.count("logtarget-container: unable to notify thread about a changed appname", LOG_ERR));
    container.reset();
    EXPECT_EQ(0, m_syslog.count(EXIT));
}

TEST_F(CLogTargetContainerWatcherTest, SetUpFailuresKeepTheFirstReadWithoutWorker)
{
    m_dir.write("vexlor.cfg", targetLine(testpaths::recorder(), "name=a"));
    const int descriptors = openDescriptors();
    for (const CFailingCall call : {CFailingCall::EPOLL_CREATE1, CFailingCall::INOTIFY_INIT1,
                                    CFailingCall::INOTIFY_ADD_WATCH, CFailingCall::PIPE2, CFailingCall::EPOLL_CTL}) {
        SCOPED_TRACE(static_cast<int>(call));
        m_syslog.clear();
        CRecorder::instance().clear();
        std::unique_ptr<CLogTargetContainer> container;
        {
            const CFailureSwitch failure(call);
            container = makeContainer();
        }
        EXPECT_EQ(1, m_syslog.count(NO_EVENT_HANDLING, LOG_ERR));
        EXPECT_TRUE(loaded("a"));
        container.reset();
        EXPECT_EQ(0, m_syslog.count(EXIT));
        EXPECT_EQ(descriptors, openDescriptors());
    }
}

}  // namespace

namespace {

TEST_F(CLogTargetContainerWatcherTest, ForkChildLeavesTheParentsWorkerAndWatchAlone)
{
    const std::string file = m_dir.write("vexlor.cfg", targetLine(testpaths::recorder(), "name=a"));
    auto container = makeContainer();
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        // The child ends its copy the way exit() would, then tries to move the watch.
        container->setAppname("child");
        container.reset();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

    // The parent still watches: a rewrite is still seen.
    writeFile(file, targetLine(testpaths::recorderTwin(), "name=b"));
    ASSERT_TRUE(m_syslog.waitFor(CHANGED));
    ASSERT_TRUE(waitUntil([] { return loaded("b"); }));
    EXPECT_EQ(0, m_syslog.count(EXIT));
}

}  // namespace
