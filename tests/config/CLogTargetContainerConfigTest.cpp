// A container on a temporary configuration directory: what one read applies, and the worker
// thread with real inotify (re-reads, the watch moving to the application's file, set-up
// failures, the end of the worker).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/resource.h>
#include <syslog.h>

#include "CCompiledPaths.h"  // targetLine
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "levels/IComponentCfgUpdateSink.h"
#include "runInChild.h"
#include "container/CLogTargetContainer.h"
#include "testPaths.h"

namespace {

// The fixture is the container's component sink: it records every level set and refuses the
// name "refused".
class CLogTargetContainerConfigTest : public ::testing::Test, public IComponentCfgUpdateSink {
protected:
    using Levels = std::vector<std::pair<std::string, std::string>>;

    CLogTargetContainerConfigTest() { CRecorder::instance().clear(); }

    int updateComponentLevel(const std::string& name, const std::string& bits) override
    {
        m_levels.emplace_back(name, bits);
        return name == "refused" ? -1 : 0;
    }

    static bool loaded(const std::string& target)
    {
        return CRecorder::instance().calls("created", target).size() >
            CRecorder::instance().calls("destroyed", target).size();
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    Levels m_levels;
    const std::pair<long, long> m_before = descriptorsAndThreads();  // before the test opens any
};

// A component line has exactly two elements, with the blanks inside the bits dropped; keys are
// exact. A read that fails part-way keeps what it applied before.
TEST_F(CLogTargetContainerConfigTest, AppliesComponentLinesUntilALineFails)
{
    m_dir.write("vexlor.cfg",
                "component = net,000011111\ncomponent = storage, 1111 1111 1\ncomponent = one,\n"
                "component = a,b,c\nComponent = z,1\ncomponent = refused,101\n"
                "component = " +
                    std::string(300, '1') + "\ncomponent = late,1\n");
    CLogTargetContainer container(m_dir.path(), false, this);
    container.onCfgUpdate();
    EXPECT_EQ((Levels{{"net", "000011111"}, {"storage", "111111111"}, {"refused", "101"}}), m_levels);
    EXPECT_EQ(1, m_syslog.countStarting("unable to read vexlor-config", LOG_ERR));
}

const std::string CHANGED = "logtarget-container: vexlor configfile changed, triggering re-read.";
const std::string NO_WORKER = "logtarget-container: unable to initialize event-handling";

TEST_F(CLogTargetContainerConfigTest, WatcherRereadsTheWatchedFileAndMovesTheWatchToTheApplicationFile)
{
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

    // The watch moves to the application's file.
    container->setAppname("player");
    ASSERT_TRUE(waitUntil([&] { return m_syslog.countContaining("with IN_IGNORED set", LOG_DEBUG) == 1; }));
    writeFile(appFile, targetLine(testpaths::recorderTwin(), "name=p") + targetLine(testpaths::recorder(), "name=q"));
    ASSERT_TRUE(waitUntil([] { return loaded("q"); }));
    EXPECT_EQ(2, m_syslog.count(CHANGED));

    // The worker stops through the pipe (after the rewrite of the default file, which it no
    // longer watches), and every descriptor is closed.
    writeFile(defaultFile, targetLine(testpaths::recorder(), "name=z"));
    container.reset();
    EXPECT_EQ(2, m_syslog.count(CHANGED));
    EXPECT_TRUE(countsReturnTo(m_before));
}

// Each descriptor limit lets the set-up open one more descriptor before it fails (epoll, inotify,
// one end of the pipe; four are enough): the first read stays in force, nothing stays open. A
// missing default file cannot be watched, and then a new name cannot be passed on either.
TEST_F(CLogTargetContainerConfigTest, FailedWatcherSetUpLeavesNoWorkerAndNoDescriptor)
{
#ifndef __SANITIZE_ADDRESS__  // its runtime checks memory through a pipe of its own, which the limit denies
    m_dir.write("vexlor.cfg", "component = net,1\n");
    // The limit below which `slots` descriptor numbers are free.
    const auto limitFor = [](int slots) {
        int fd = 0;
        for (; slots > 0; ++fd) {
            slots -= fcntl(fd, F_GETFD) == -1 ? 1 : 0;
        }
        return static_cast<rlim_t>(fd);
    };
    rlimit saved{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &saved));
    for (int slots = 1; slots <= 4; ++slots) {
        const rlimit limited{limitFor(slots), saved.rlim_max};
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limited));
        CLogTargetContainer(m_dir.path(), true, this);  // made and ended at once
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &saved));
        EXPECT_TRUE(countsReturnTo(m_before)) << slots;
    }
    EXPECT_EQ(3, m_syslog.countStarting(NO_WORKER, LOG_ERR));
    EXPECT_EQ(Levels(4, {"net", "1"}), m_levels);
    m_syslog.clear();
#endif

    removeTree(m_dir.file("vexlor.cfg"));
    m_dir.write("vexlor-player.cfg", targetLine(testpaths::recorder(), "name=p"));
    CLogTargetContainer container(m_dir.path(), true, this);
    EXPECT_EQ(1, m_syslog.countStarting(NO_WORKER, LOG_ERR));
    container.setAppname("player");
    EXPECT_TRUE(loaded("p"));
    EXPECT_EQ(1, m_syslog.countStarting("logtarget-container: unable to notify thread", LOG_ERR));
}

}  // namespace
