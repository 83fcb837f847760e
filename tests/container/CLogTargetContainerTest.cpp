// A container on a temporary directory: the fan-out in name order, reuse, refusal and unloading
// of targets, every failed creation, and the syslog-target flag. (The loader's hooks and factory
// look-ups show through these.)
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <memory>
#include <syslog.h>
#include <unistd.h>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "container/CLogTargetContainer.h"
#include "testPaths.h"

// Present when the test runs under LeakSanitizer.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace {

using Lines = std::vector<std::string>;

bool isOpen(const std::string& path)
{
    void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    return handle != nullptr && dlclose(handle) == 0;
}

// The recorded calls other than records and factory look-ups, as "<kind>[:<target>]"; the
// recorder is cleared.
Lines takeEvents()
{
    Lines events;
    for (const CRecordedCall& call : CRecorder::instance().calls()) {
        if (call.kind != "log" && call.kind != "factory") {
            events.push_back(call.kind + (call.target.empty() ? "" : ":" + call.target));
        }
    }
    CRecorder::instance().clear();
    return events;
}

class CLogTargetContainerTest : public ::testing::Test {
protected:
    CLogTargetContainerTest() { CRecorder::instance().clear(); }

    void read(const std::string& content)
    {
        m_dir.write("vexlor.cfg", content);
        m_container->onCfgUpdate();
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    std::unique_ptr<CLogTargetContainer> m_container =
        std::make_unique<CLogTargetContainer>(m_dir.path(), false, nullptr);
    const std::string m_rec = testpaths::recorder();
    const std::string m_twin = testpaths::recorderTwin();
};

TEST_F(CLogTargetContainerTest, ReachesEveryTargetInByteWiseNameOrder)
{
    // Line order differs from name order on purpose ("B" < "a" < "b" byte-wise).
    read(targetLine(m_twin, "name=b") + targetLine(m_rec, "name=a") + targetLine(testpaths::hookless(), "name=B"));
    CRecorder::instance().clear();
    vexlor_component net{"net", 0x1f, {}};
    m_container->onComponentAdded(&net);
    EXPECT_EQ(&net, CRecorder::instance().calls("component").at(0).component);
    EXPECT_EQ((Lines{"component:B", "component:a", "component:b"}), takeEvents());

    // A new name: one re-read (nothing is created again), then every target hears it once.
    m_container->setAppname("app");
    EXPECT_EQ("app", CRecorder::instance().calls("appname").at(0).text);
    EXPECT_EQ((Lines{"syslog?:B", "syslog?:a", "syslog?:b", "appname:B", "appname:a", "appname:b"}), takeEvents());
    m_container->setAppname("app");
    EXPECT_TRUE(CRecorder::instance().calls().empty());
    m_container->log(1, 0, 0, 0, VX_INFO, "t", "", "", "hello");
    const auto records = CRecorder::instance().calls("log");
    ASSERT_EQ(3u, records.size());
    EXPECT_EQ("Bab", records[0].target + records[1].target + records[2].target);
}

// An empty path (a value whose items are all empty) fails like any library that cannot be
// opened: opened, it would be the main program, and its global scope would hand out the factory
// of a plug-in loaded before, under a module that does not own it.
TEST_F(CLogTargetContainerTest, KeepsLoadedTargetsAcrossReadsAndUnloadsThoseNoLongerNamed)
{
    // The recorder's path twice: loaded once, the second line only marks it.
    const std::string b = targetLine(m_twin, "name=b");
    const std::string config = targetLine(m_rec, "name=a") + targetLine(m_rec, "name=x, k=1") + b;
    read(config + "target = ,\n");
    EXPECT_EQ((Lines{"init", "created:a", "init", "created:b", "syslog?:a", "syslog?:b"}), takeEvents());
    EXPECT_EQ(1, m_syslog.countStarting("Unable to open shared library \"\"", LOG_ERR));

    // Unchanged, or with new parameters for a loaded library: each kept target is only asked.
    for (const std::string& again : {config, targetLine(m_rec, "name=a, k=2") + b}) {
        read(again);
        EXPECT_EQ((Lines{"syslog?:a", "syslog?:b"}), takeEvents());
    }
    read(b);
    EXPECT_EQ((Lines{"destroyed:a", "done", "syslog?:b"}), takeEvents());
    EXPECT_FALSE(isOpen(m_rec));
    m_container->log(1, 0, 0, 0, VX_INFO, "t", "c", "", "to b");  // never to the unloaded a

    // Named again: a new target with the new parameters.
    read(targetLine(m_rec, "name=a, k=2") + b);
    EXPECT_EQ("2", CRecorder::instance().calls("created").at(0).params.at("k"));
    EXPECT_EQ((Lines{"init", "created:a", "syslog?:a", "syslog?:b"}), takeEvents());

    // Destruction hands back every target and closes every library.
    m_container.reset();
    EXPECT_EQ((Lines{"destroyed:a", "done", "destroyed:b", "done"}), takeEvents());
    EXPECT_FALSE(isOpen(m_twin));
}

TEST_F(CLogTargetContainerTest, ResolvesNameConflictsInFavourOfTheFirstRegistered)
{
    // Both stay named: the later one is created, refused and unloaded again at every read.
    const std::string warning = "logtarget-container: Target a already loaded";
    for (const Lines& events : {Lines{"init", "created:a", "init", "created:a", "destroyed:a", "done", "syslog?:a"},
                                Lines{"init", "created:a", "destroyed:a", "done", "syslog?:a"}}) {
        read(targetLine(m_rec, "name=a") + targetLine(m_twin, "name=a"));
        EXPECT_EQ(events, takeEvents());
        EXPECT_EQ(1, m_syslog.countStarting(warning, LOG_WARNING));
        m_syslog.clear();
        EXPECT_FALSE(isOpen(m_twin));
    }
    // The name moves to the other library in one edit: refused, then the old one is unloaded;
    // the next read loads it from its new library.
    read(targetLine(m_twin, "name=a"));
    EXPECT_EQ((Lines{"init", "created:a", "destroyed:a", "done", "destroyed:a", "done"}), takeEvents());
    read(targetLine(m_twin, "name=a"));
    EXPECT_EQ((Lines{"init", "created:a", "syslog?:a"}), takeEvents());
}

// Every library that opened runs both hooks and is closed again; an object that is not a target
// goes back to its factory. Without a factory at unload a target cannot be handed back (it stays
// allocated on purpose), but its library is closed all the same.
TEST_F(CLogTargetContainerTest, ReportsEveryFailedCreationAndClosesEveryLibraryAlsoWithoutAFactory)
{
    const std::string missing = "/nonexistent/libvexlor-missing-target.so";
    read(targetLine(missing) + targetLine(testpaths::noFactory()) + targetLine(testpaths::nullFactory()) +
         targetLine(m_rec, "name=n, create=null") + targetLine(m_twin, "name=o, create=object"));
    EXPECT_EQ(
        (Lines{"init", "done", "init", "done", "init", "created:n", "done", "init", "created:o", "destroyed", "done"}),
        takeEvents());
    // Each failure is reported as an error naming its library: a failed load twice (the loader and
    // the container), a missing factory twice (the symbol and the container).
    for (const auto& [path, errors] :
         {std::pair(missing, 2), {testpaths::noFactory(), 2}, {testpaths::nullFactory(), 1}, {m_rec, 1}, {m_twin, 1}}) {
        EXPECT_EQ(errors, m_syslog.countContaining("\"" + path + "\"", LOG_ERR)) << path;
        EXPECT_FALSE(isOpen(path)) << path;
    }

    if (__lsan_disable != nullptr) {
        __lsan_disable();
    }
    read(targetLine(m_rec, "name=a"));
    if (__lsan_enable != nullptr) {
        __lsan_enable();
    }
    CRecorder::instance().clear();
    CRecorder::instance().setFactoryAvailable(false);
    m_container.reset();
    EXPECT_EQ(Lines{"done"}, takeEvents());
    EXPECT_EQ(1, m_syslog.countStarting("logtarget-container: no classfactory in lib", LOG_WARNING));
    EXPECT_FALSE(isOpen(m_rec));
}

// Every kept target is asked, also after one has answered 1; a failed read clears the flag
// although the targets stay loaded until the next good read.
TEST_F(CLogTargetContainerTest, HasSyslogTargetOnlyWhileAKeptTargetReportsExactlyOne)
{
    const std::string others = targetLine(m_rec, "name=a, syslog=2") + targetLine(m_twin, "name=b, syslog=-1");
    read(others);
    EXPECT_FALSE(m_container->hasSyslogTarget());
    CRecorder::instance().clear();
    read(others + targetLine(testpaths::hookless(), "name=A, syslog=1"));
    EXPECT_TRUE(m_container->hasSyslogTarget());
    EXPECT_EQ((Lines{"created:A", "syslog?:A", "syslog?:a", "syslog?:b"}), takeEvents());

    unlink(m_dir.file("vexlor.cfg").c_str());
    m_container->onCfgUpdate();
    EXPECT_FALSE(m_container->hasSyslogTarget());
    EXPECT_TRUE(takeEvents().empty());
    read(others);
    EXPECT_EQ((Lines{"destroyed:A", "syslog?:a", "syslog?:b"}), takeEvents());
}

}  // namespace
