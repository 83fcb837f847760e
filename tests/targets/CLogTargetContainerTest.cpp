// A container on a temporary directory: the fan-out in name order, the grammar of a target line
// as the plug-in sees it, reuse, refusal and unloading of targets, every failed creation, and the
// syslog-target flag.
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <thread>
#include <unistd.h>

#include "CCompiledPaths.h"
#include "CTempDir.h"
#include "pluginProbes.h"
#include "targets/CLogTargetContainer.h"
#include "testPaths.h"

// Present when the test runs under LeakSanitizer.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace {

using Lines = std::vector<std::string>;

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
    // Made before any application name was set.
    EXPECT_EQ("", CRecorder::instance().calls("created").at(0).params.at("application-name"));
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

    // Records of two threads: each reaches all three targets, in name order, before the next
    // record reaches any.
    constexpr int RECORDS = 2000;
    auto logger = [this](const std::string& thread) {
        for (int i = 0; i < RECORDS; ++i) {
            m_container->log(1, 0, 0, 0, VX_INFO, thread, "", "", thread + std::to_string(i));
        }
    };
    std::thread other(logger, "x");
    logger("y");
    other.join();
    const auto records = CRecorder::instance().calls("log");
    ASSERT_EQ(3u * 2 * RECORDS, records.size());
    for (std::size_t i = 0; i < records.size(); i += 3) {
        ASSERT_EQ("Bab", records[i].target + records[i + 1].target + records[i + 2].target) << i;
        ASSERT_EQ(records[i].message, records[i + 1].message) << i;
        ASSERT_EQ(records[i].message, records[i + 2].message) << i;
        ASSERT_EQ(records[i].message.substr(0, 1), records[i].threadName) << i;
    }
}

TEST_F(CLogTargetContainerTest, HandsTheParametersOfTheTargetLineToTheFactory)
{
    // The first item is the path even when it holds "=": this one is the recorder under a name
    // that looks like a parameter, and the real path after it is an ignored one-piece item.
    const std::string oddPath = m_dir.file("key1=value1");
    ASSERT_EQ(0, symlink(m_rec.c_str(), oddPath.c_str()));
    // Each line also gets "application-name" = "app" unless it sets that key itself.
    const std::vector<std::pair<std::string, std::map<std::string, std::string>>> rows = {
        {m_rec, {}},
        {m_rec + ", key1=value1, key2 = value two", {{"key1", "value1"}, {"key2", "value two"}}},
        {m_rec + ",,key1=value1,", {{"key1", "value1"}}},
        {m_rec + ", key1=a, key1=b", {{"key1", "a"}}},
        {m_rec + ", key1=a=b, key2, key3==third,=key4=fourth", {{"key3", "third"}, {"key4", "fourth"}}},
        {m_rec + ", key1= , key2=x", {{"key1", ""}, {"key2", "x"}}},
        // White space is part of the pieces: around a single "=" it makes an empty key and value.
        {m_rec + ", = ,\tkey1\t=\tv\t1\t", {{"key1", "v\t1"}, {"", ""}}},
        {m_rec + ", application-name=other", {{"application-name", "other"}}},
        {oddPath + ", " + m_rec, {}},
    };
    m_container->setAppname("app");
    for (auto [line, expected] : rows) {
        SCOPED_TRACE(line);
        read("");
        CRecorder::instance().clear();
        read("target = " + line + "\n");
        expected.emplace("application-name", "app");
        EXPECT_EQ(expected, CRecorder::instance().calls("created").at(0).params);
    }
    EXPECT_TRUE(m_syslog.contains("will load target  from lib " + oddPath, LOG_DEBUG));
}

TEST_F(CLogTargetContainerTest, KeepsLoadedTargetsAcrossReadsAndUnloadsThoseNoLongerNamed)
{
    // The recorder's path twice: loaded once, the second line only marks it.
    const std::string b = targetLine(m_twin, "name=b");
    const std::string config = targetLine(m_rec, "name=a") + targetLine(m_rec, "name=x, k=1") + b;
    read(config);
    EXPECT_EQ((Lines{"init", "created:a", "init", "created:b", "syslog?:a", "syslog?:b"}), takeEvents());
    EXPECT_EQ(1, m_syslog.count("logtarget-container: library " + quoted(m_rec) + " already loaded", LOG_DEBUG));

    // Unchanged, or with new parameters for a loaded library: each kept target is only asked.
    for (const std::string& again : {config, targetLine(m_rec, "name=a, k=2") + b}) {
        read(again);
        EXPECT_EQ((Lines{"syslog?:a", "syslog?:b"}), takeEvents());
    }

    read(b);
    EXPECT_EQ((Lines{"destroyed:a", "done", "syslog?:b"}), takeEvents());
    EXPECT_FALSE(isOpen(m_rec));

    // Named again: a new target with the new parameters.
    read(targetLine(m_rec, "name=a, k=2") + b);
    EXPECT_EQ("2", CRecorder::instance().calls("created").at(0).params.at("k"));
    EXPECT_EQ((Lines{"init", "created:a", "syslog?:a", "syslog?:b"}), takeEvents());

    // Destruction hands back every target and closes every library, silently.
    m_syslog.clear();
    m_container.reset();
    EXPECT_EQ((Lines{"destroyed:a", "done", "destroyed:b", "done"}), takeEvents());
    EXPECT_EQ(0, m_syslog.countContaining("logtarget-container"));
    EXPECT_FALSE(isOpen(m_twin));
}

TEST_F(CLogTargetContainerTest, ResolvesNameConflictsInFavourOfTheFirstRegistered)
{
    // Both stay named: the later one is created, refused and unloaded again at every read.
    const std::string warning = "4 logtarget-container: Target a already loaded, but from different path";
    for (const Lines& events : {Lines{"init", "created:a", "init", "created:a", "destroyed:a", "done", "syslog?:a"},
                                Lines{"init", "created:a", "destroyed:a", "done", "syslog?:a"}}) {
        read(targetLine(m_rec, "name=a") + targetLine(m_twin, "name=a"));
        EXPECT_EQ(events, takeEvents());
        EXPECT_EQ(Lines{warning}, takeLines(m_syslog, LOG_INFO));
        EXPECT_TRUE(isOpen(m_rec));
        EXPECT_FALSE(isOpen(m_twin));
    }

    // The name moves to the other library in one edit: refused, then the old one is unloaded.
    read(targetLine(m_twin, "name=a"));
    EXPECT_EQ((Lines{"init", "created:a", "destroyed:a", "done", "destroyed:a", "done"}), takeEvents());
    EXPECT_EQ((Lines{warning, "6 logtarget-container: unloading log-target a (and its library " + quoted(m_rec) + ")"}),
              takeLines(m_syslog, LOG_INFO));
    EXPECT_FALSE(isOpen(m_rec));

    // The next read loads it from its new library.
    read(targetLine(m_twin, "name=a"));
    EXPECT_EQ((Lines{"init", "created:a", "syslog?:a"}), takeEvents());
    EXPECT_TRUE(isOpen(m_twin));
}

TEST_F(CLogTargetContainerTest, ReportsEveryFailedCreationAndClosesTheLibrary)
{
    const std::string missing = "/nonexistent/libvexlor-missing-target.so";
    const std::string noFactory = testpaths::noFactory();
    const std::string nullFactory = testpaths::nullFactory();
    read(targetLine(missing) + targetLine(noFactory) + targetLine(nullFactory) +
         targetLine(m_rec, "name=n, create=null") + targetLine(m_twin, "name=o, create=object"));

    // Every library that opened ran both hooks; the object that is not a target went back, and
    // nothing was registered (no target was asked isSyslogTarget).
    EXPECT_EQ((Lines{"init", "done", "init", "done", "init", "created:n", "done", "init", "created:o", "destroyed",
                     "done"}),
              takeEvents());
    const Lines lines = takeLines(m_syslog, LOG_INFO);
    ASSERT_EQ(7u, lines.size());
    EXPECT_EQ(0u, lines[0].find("3 Unable to open shared library " + quoted(missing) + " - error="));
    int err = -1;  // whatever the failed load left in errno, shown with its own text
    std::sscanf(lines[1].c_str(), "%*[^=]=%d", &err);
    EXPECT_EQ((Lines{"3 logtarget-container: Unable to load the logtarget-library " + quoted(missing) +
                         " - errno=" + std::to_string(err) + "(" + std::strerror(err) + ")",
                     "3 Symbol \"getClassFactory\" not found in shared library " + quoted(noFactory),
                     "3 logtarget-container: Unable to retrieve the classfactory from lib " + quoted(noFactory),
                     "3 logtarget-container: Unable to retrieve the classfactory from lib " + quoted(nullFactory),
                     "3 logtarget-container: Unable to create LogTarget from lib " + quoted(m_rec),
                     "3 logtarget-container: Unable to create LogTarget from lib " + quoted(m_twin)}),
              Lines(lines.begin() + 1, lines.end()));
    for (const std::string& path : {noFactory, nullFactory, m_rec, m_twin}) {
        EXPECT_FALSE(isOpen(path)) << path;
    }
}

// An empty path (a value whose items are all empty) fails like any library that cannot be
// opened: opened, it would be the main program, and its global scope would hand out the factory
// of a plug-in loaded before, under a module that does not own it.
TEST_F(CLogTargetContainerTest, EmptyLibraryPathFailsToLoadLikeAMissingLibrary)
{
    read(targetLine(m_rec, "name=a") + "target = ,\n");
    EXPECT_EQ((Lines{"init", "created:a", "syslog?:a"}), takeEvents());
    EXPECT_EQ((Lines{"3 Unable to open shared library \"\" - error=No such file or directory",
                     "3 logtarget-container: Unable to load the logtarget-library \"\" - errno=2(No such file or directory)"}),
              takeLines(m_syslog, LOG_ERR));
    read("target = ,\n");
    EXPECT_EQ((Lines{"destroyed:a", "done"}), takeEvents());
    m_container->log(1, 0, 0, 0, VX_INFO, "t", "c", "", "nowhere");  // nothing left to call
    EXPECT_FALSE(isOpen(m_rec));
}

// Without a factory a target cannot be handed back (it stays allocated on purpose), but its
// library is closed all the same, at a read and at the container's end.
TEST_F(CLogTargetContainerTest, ClosesTheLibraryWhenItsFactoryIsGoneAtUnload)
{
    if (__lsan_disable != nullptr) {
        __lsan_disable();
    }
    read(targetLine(m_rec, "name=a") + targetLine(m_twin, "name=b"));
    if (__lsan_enable != nullptr) {
        __lsan_enable();
    }
    CRecorder::instance().clear();
    CRecorder::instance().setFactoryAvailable(false);
    read(targetLine(m_twin, "name=b"));
    EXPECT_EQ((Lines{"done", "syslog?:b"}), takeEvents());
    EXPECT_FALSE(isOpen(m_rec));

    CRecorder::instance().setFactoryAvailable(false);
    m_container.reset();
    EXPECT_EQ(Lines{"done"}, takeEvents());
    EXPECT_FALSE(isOpen(m_twin));
}

TEST_F(CLogTargetContainerTest, HasSyslogTargetOnlyWhileAKeptTargetReportsExactlyOne)
{
    EXPECT_FALSE(m_container->hasSyslogTarget());
    const std::string others = targetLine(m_rec, "name=a, syslog=2") + targetLine(m_twin, "name=b, syslog=-1");
    read(others);
    EXPECT_FALSE(m_container->hasSyslogTarget());
    // The first in name order answers 1; the others are asked all the same.
    CRecorder::instance().clear();
    read(others + targetLine(testpaths::hookless(), "name=A, syslog=1"));
    EXPECT_TRUE(m_container->hasSyslogTarget());
    EXPECT_EQ((Lines{"created:A", "syslog?:A", "syslog?:a", "syslog?:b"}), takeEvents());

    // A failed read clears the flag although the target stays loaded until the next good read.
    unlink(m_dir.file("vexlor.cfg").c_str());
    m_container->onCfgUpdate();
    EXPECT_FALSE(m_container->hasSyslogTarget());
    EXPECT_TRUE(takeEvents().empty());
    read(others);
    EXPECT_FALSE(m_container->hasSyslogTarget());
    EXPECT_EQ((Lines{"destroyed:A", "syslog?:a", "syslog?:b"}), takeEvents());
}

}  // namespace
