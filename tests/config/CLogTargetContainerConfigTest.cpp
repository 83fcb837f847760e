// A container on a temporary configuration directory: what one read applies, and the worker
// thread with real inotify (re-reads, the watch moving to the application's file, the watch the
// kernel dropped, set-up failures, the end of the worker).
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <syslog.h>

#include "CCompiledPaths.h"  // targetLine
#include "CFailureSwitches.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "levels/IComponentCfgUpdateSink.h"
#include "runInChild.h"
#include "targets/CLogTargetContainer.h"
#include "testPaths.h"

namespace {

// The fixture is the container's component sink: it records every level set and refuses the
// name "refused".
class CContainerTest : public ::testing::Test, public IComponentCfgUpdateSink {
protected:
    using Levels = std::vector<std::pair<std::string, std::string>>;

    CContainerTest() { CRecorder::instance().clear(); }

    // Called under the container's lock, on whichever thread reads the configuration.
    int updateComponentLevel(const std::string& name, const std::string& bits) override
    {
        m_levels.emplace_back(name, bits);
        return name == "refused" ? -1 : 0;
    }

    static bool loaded(const std::string& target)
    {
        return CRecorder::instance().calls("created", target).size() > CRecorder::instance().calls("destroyed", target).size();
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    Levels m_levels;
};

using CLogTargetContainerConfigTest = CContainerTest;
using CLogTargetContainerWatcherTest = CContainerTest;

// A component line has exactly two elements, each trimmed, with the blanks inside the bits
// dropped; keys are exact. A read that fails part-way keeps what it applied before.
TEST_F(CLogTargetContainerConfigTest, AppliesComponentLinesUntilALineFails)
{
    const std::string file = m_dir.write("vexlor.cfg", "component = net,000011111\ncomponent = storage, 1111 1111 1\n"
                                                       "component = a , 0001\ncomponent = one,\ncomponent = a,b,c\n"
                                                       "Component = z,1\napplication-name = w\ncomponent = refused,101\n"
                                                       "component = " + std::string(300, '1') + "\ncomponent = late,1\n");
    CLogTargetContainer container(m_dir.path(), false, this);
    container.onCfgUpdate();
    EXPECT_EQ((Levels{{"net", "000011111"}, {"storage", "111111111"}, {"a", "0001"}, {"refused", "101"}}), m_levels);
    // Entries as read; component elements as written.
    for (const char* message : {"callback \"component\"=\"net,000011111\"",
                                "Modifying component \"a \": new level=\" 0001\"",
                                "ignoring unknown config token \"Component\"",
                                "Unable to set level \"101\" for component \"refused\""}) {
        EXPECT_EQ(1, m_syslog.count(message, LOG_DEBUG)) << message;
    }
    EXPECT_EQ(1, m_syslog.count("unable to read vexlor-config \"" + file + "\" - giving up.", LOG_ERR));
}

const std::string CHANGED = "logtarget-container: vexlor configfile changed, triggering re-read.";
const std::string IGNORED =
    "logtarget-container: got an inotify-event with IN_IGNORED set (mask=0x8000, watch-fd=1)";
const std::string NO_EVENT_HANDLING =
    "logtarget-container: unable to initialize event-handling - not worker thread will be spawned";
const std::string EXIT = "logtarget-container: got exit message - ending thread.";

int openDescriptors()
{
    return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

TEST_F(CLogTargetContainerWatcherTest, RereadsTheWatchedFileAndMovesTheWatchToTheApplicationFile)
{
    const int descriptors = openDescriptors();
    const std::string defaultFile = m_dir.write("vexlor.cfg", targetLine(testpaths::recorder(), "name=a"));
    const std::string appFile = m_dir.write("vexlor-player.cfg", targetLine(testpaths::recorderTwin(), "name=p"));
    auto container = std::make_unique<CLogTargetContainer>(m_dir.path(), true, this);
    // A fork child that ends its copy (as exit() would) leaves the parent's worker and watch alone.
    EXPECT_EQ(0, runInChild([&] {
        container->setAppname("player");
        container.reset();
        return 0;
    }));

    // A name without a file of its own leaves the watch where it is. The rewrite is queued after
    // the notification, so the worker has handled that when it re-reads.
    container->setAppname("other");
    writeFile(defaultFile, targetLine(testpaths::recorderTwin(), "name=b"));
    ASSERT_TRUE(waitUntil([] { return loaded("b") && !loaded("a"); }));
    EXPECT_EQ(1, m_syslog.count(CHANGED, LOG_DEBUG));

    // Read on the calling thread, the watch moved on the worker.
    container->setAppname("player");
    EXPECT_EQ(1, m_syslog.count("logtarget-container: reading vexlor-config from file \"" + appFile + "\"", LOG_DEBUG));
    ASSERT_TRUE(m_syslog.waitFor("logtarget-container: Watching application-specific config-file \"" + appFile +
                                 "\" for changes"));
    EXPECT_EQ(1, m_syslog.count("logtarget-container: removing old watch-descriptor 1", LOG_DEBUG));
    ASSERT_TRUE(m_syslog.waitFor(IGNORED));
    writeFile(appFile, targetLine(testpaths::recorderTwin(), "name=p") + targetLine(testpaths::recorder(), "name=q"));
    ASSERT_TRUE(waitUntil([] { return loaded("q"); }));
    EXPECT_EQ(2, m_syslog.count(CHANGED));

    // The worker stops through the pipe (after the rewrite of the default file, which it no
    // longer watches), and every descriptor is closed.
    m_syslog.clear();
    writeFile(defaultFile, targetLine(testpaths::recorder(), "name=z"));
    container.reset();
    EXPECT_EQ(1, m_syslog.count(EXIT, LOG_DEBUG));
    EXPECT_EQ(0, m_syslog.count(CHANGED));
    EXPECT_EQ(descriptors, openDescriptors());
}

// Renaming another file over the watched one removes it, and with it the watch: later rewrites
// go unnoticed, and the stale watch can no longer be moved.
TEST_F(CLogTargetContainerWatcherTest, AWatchTheKernelDroppedIsReportedAndNotMoved)
{
    const std::string file = m_dir.write("vexlor.cfg", targetLine(testpaths::recorder(), "name=a"));
    m_dir.write("vexlor-player.cfg", targetLine(testpaths::recorderTwin(), "name=p"));
    CLogTargetContainer container(m_dir.path(), true, this);
    const std::string replacement = m_dir.write("new.cfg", targetLine(testpaths::recorder(), "name=c"));
    ASSERT_EQ(0, std::rename(replacement.c_str(), file.c_str()));
    ASSERT_TRUE(m_syslog.waitFor(IGNORED));
    EXPECT_EQ(1, m_syslog.count(IGNORED, LOG_DEBUG));
    writeFile(file, targetLine(testpaths::recorder(), "name=d"));
    // The rewrite was queued before this notification, so a watch would have reported it by now.
    container.setAppname("player");
    ASSERT_TRUE(m_syslog.waitFor("logtarget-container: Unable remove old inotify watch - errno=Invalid argument"));
    EXPECT_EQ(0, m_syslog.countContaining("Watching application-specific"));
    EXPECT_EQ(0, m_syslog.count(CHANGED));
}

// Without a worker the first read stays in force; without a pipe a new name cannot be passed on.
TEST_F(CLogTargetContainerWatcherTest, SetUpFailuresAndAMissingDefaultFileLeaveNoWorker)
{
    const std::string defaultFile = m_dir.write("vexlor.cfg", targetLine(testpaths::recorder(), "name=a"));
    const int descriptors = openDescriptors();
    for (const CFailingCall call : {CFailingCall::EPOLL_CREATE1, CFailingCall::INOTIFY_INIT1,
                                    CFailingCall::INOTIFY_ADD_WATCH, CFailingCall::PIPE2, CFailingCall::EPOLL_CTL}) {
        const CFailureSwitch failure(call);
        const CLogTargetContainer container(m_dir.path(), true, this);
        EXPECT_TRUE(loaded("a"));
    }
    // Each failure was reported, no worker was started (none told to end) and nothing stays open.
    EXPECT_EQ(5, m_syslog.count(NO_EVENT_HANDLING, LOG_ERR));
    EXPECT_EQ(0, m_syslog.count(EXIT));
    EXPECT_EQ(descriptors, openDescriptors());

    removeTree(defaultFile);
    m_dir.write("vexlor-player.cfg", targetLine(testpaths::recorder(), "name=p"));
    m_syslog.clear();
    CLogTargetContainer container(m_dir.path(), true, this);
    EXPECT_EQ(1, m_syslog.countStarting("unable to read vexlor-config", LOG_ERR));
    EXPECT_EQ(1, m_syslog.count(NO_EVENT_HANDLING, LOG_ERR));
    container.setAppname("player");
    EXPECT_TRUE(loaded("p"));
    EXPECT_EQ(1, m_syslog.count("logtarget-container: invalid pipe-fd (notify)", LOG_ERR));
    EXPECT_EQ(1, m_syslog.count("logtarget-container: unable to notify thread about a changed appname", LOG_ERR));
}

}  // namespace
