// Target configuration of a container on a temporary directory: the grammar of a target line as
// the plug-in sees it, reuse, refusal and unloading of targets, every failed creation, and the
// syslog-target flag.
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <syslog.h>
#include <unistd.h>

#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "pluginProbes.h"
#include "CTempDir.h"
#include "targets/CLogTargetContainer.h"
#include "testPaths.h"

// Present when the test runs under LeakSanitizer.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace {

using Params = std::map<std::string, std::string>;

class CTargetConfigTest : public ::testing::Test {
protected:
    CTargetConfigTest() { CRecorder::instance().clear(); }
    ~CTargetConfigTest() override { CRecorder::instance().clear(); }

    void read(const std::string& content)
    {
        m_dir.write("vexlor.cfg", content);
        m_container->onCfgUpdate();
    }

    void deliver(const std::string& message)
    {
        m_container->log(1, 0, 0, 0, VX_INFO, "thread", "component", "", message);
    }

    // The recorded calls other than records, as "<kind>[:<target>]", and then forgotten.
    static std::vector<std::string> takeEvents()
    {
        std::vector<std::string> events;
        for (const CRecordedCall& call : CRecorder::instance().calls()) {
            if (call.kind != "log") {
                events.push_back(call.kind + (call.target.empty() ? "" : ":" + call.target));
            }
        }
        CRecorder::instance().clear();
        return events;
    }

    // The messages at warning priority or above, as "<priority> <text>".
    std::vector<std::string> problems() const
    {
        std::vector<std::string> lines;
        for (const CSyslogMessage& message : m_syslog.messages()) {
            if (message.priority <= LOG_WARNING) {
                lines.push_back(std::to_string(message.priority) + " " + message.text);
            }
        }
        return lines;
    }

    int indexOf(const std::string& text) const
    {
        const auto messages = m_syslog.messages();
        for (std::size_t i = 0; i < messages.size(); ++i) {
            if (messages[i].text == text) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    std::unique_ptr<CLogTargetContainer> m_container =
        std::make_unique<CLogTargetContainer>(m_dir.path(), false, nullptr);
    const std::string m_rec = testpaths::recorder();
    const std::string m_twin = testpaths::recorderTwin();
};

TEST_F(CTargetConfigTest, HandsTheParametersOfTheTargetLineToTheFactory)
{
    // The first item is the path even when it holds "=": this one is the recorder under a name
    // that looks like a parameter, and the real path after it is an ignored one-piece item.
    const std::string oddPath = m_dir.file("key1=value1");
    ASSERT_EQ(0, symlink(m_rec.c_str(), oddPath.c_str()));

    struct Row {
        std::string line;
        Params expected;
    };
    const std::vector<Row> rows = {
        {m_rec, {{"application-name", "app"}}},
        {m_rec + ", key1=value1, key2 = value two",
         {{"application-name", "app"}, {"key1", "value1"}, {"key2", "value two"}}},
        {m_rec + ",,key1=value1,", {{"application-name", "app"}, {"key1", "value1"}}},
        {m_rec + ", key1=a, key1=b", {{"application-name", "app"}, {"key1", "a"}}},
        {m_rec + ", key1=a=b, key2, key3==third,=key4=fourth",
         {{"application-name", "app"}, {"key3", "third"}, {"key4", "fourth"}}},
        {m_rec + ", key1= , key2=x", {{"application-name", "app"}, {"key1", ""}, {"key2", "x"}}},
        // White space is part of the pieces: around a single "=" it makes an empty key and value.
        {m_rec + ", = ,\tkey1\t=\tv\t1\t", {{"application-name", "app"}, {"key1", "v\t1"}, {"", ""}}},
        {m_rec + ", application-name=other", {{"application-name", "other"}}},
        {oddPath + ", " + m_rec, {{"application-name", "app"}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        m_container = std::make_unique<CLogTargetContainer>(m_dir.path(), false, nullptr);
        CRecorder::instance().clear();
        m_dir.write("vexlor.cfg", "target = " + row.line + "\n");
        m_container->setAppname("app");  // reads the file
        const auto created = CRecorder::instance().calls("created");
        ASSERT_EQ(1u, created.size());
        EXPECT_EQ(row.expected, created[0].params);
    }
    EXPECT_TRUE(m_syslog.contains("will load target recorder from lib " + oddPath, LOG_DEBUG));

    // The same with a name the loader cannot find: it is looked up as written, nothing is made.
    m_syslog.clear();
    CRecorder::instance().clear();
    read("target = key1=value1, " + m_rec + "\n");
    EXPECT_TRUE(CRecorder::instance().calls("created").empty());
    const auto messages = problems();
    ASSERT_EQ(2u, messages.size());
    EXPECT_EQ(0u, messages[0].find("3 Unable to open shared library \"key1=value1\" - error="));
}

TEST_F(CTargetConfigTest, KeepsLoadedTargetsAcrossReadsAndUnloadsThoseNoLongerNamed)
{
    const std::string config = "target = " + m_rec + ", name=a\n" + "target = " + m_rec + ", name=x, k=1\n" +
                               "target = " + m_twin + ", name=b\n";
    read(config);
    EXPECT_EQ((std::vector<std::string>{"init", "created:a", "init", "created:b", "syslog?:a", "syslog?:b"}),
              takeEvents());
    const std::string alreadyRec = "logtarget-container: library " + quoted(m_rec) + " already loaded";
    const std::string alreadyTwin = "logtarget-container: library " + quoted(m_twin) + " already loaded";
    EXPECT_EQ(1, m_syslog.count(alreadyRec, LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count("will load target a from lib " + m_rec, LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count("will load target b from lib " + m_twin, LOG_DEBUG));

    // Unchanged: nothing loaded or unloaded, each kept target asked once.
    m_syslog.clear();
    read(config);
    EXPECT_EQ((std::vector<std::string>{"syslog?:a", "syslog?:b"}), takeEvents());
    EXPECT_EQ(2, m_syslog.count(alreadyRec, LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count(alreadyTwin, LOG_DEBUG));
    EXPECT_EQ(0, m_syslog.countContaining("will load"));
    EXPECT_EQ(0, m_syslog.countContaining("unloading"));

    // New parameters for a loaded library change nothing.
    read("target = " + m_rec + ", name=a, k=2\ntarget = " + m_twin + ", name=b\n");
    EXPECT_EQ((std::vector<std::string>{"syslog?:a", "syslog?:b"}), takeEvents());

    // Dropped from the file: unloaded in name order, the kept one still asked.
    m_syslog.clear();
    read("target = " + m_twin + ", name=b\n");
    EXPECT_EQ((std::vector<std::string>{"destroyed:a", "done", "syslog?:b"}), takeEvents());
    EXPECT_EQ(1, m_syslog.count("logtarget-container: unloading log-target a (and its library " + quoted(m_rec) + ")",
                                LOG_INFO));
    EXPECT_FALSE(isOpen(m_rec));

    // Named again: a new target with the new parameters.
    read("target = " + m_rec + ", name=a, k=2\ntarget = " + m_twin + ", name=b\n");
    const auto created = CRecorder::instance().calls("created");
    ASSERT_EQ(1u, created.size());
    EXPECT_EQ("2", created[0].params.at("k"));

    // Destruction hands back every target and closes every library, silently.
    CRecorder::instance().clear();
    m_syslog.clear();
    m_container.reset();
    EXPECT_EQ((std::vector<std::string>{"destroyed:a", "done", "destroyed:b", "done"}), takeEvents());
    EXPECT_EQ(0, m_syslog.countContaining("logtarget-container"));
    EXPECT_FALSE(isOpen(m_twin));
}

TEST_F(CTargetConfigTest, ResolvesNameConflictsInFavourOfTheFirstRegistered)
{
    const std::string warning = "4 logtarget-container: Target a already loaded, but from different path";
    read("target = " + m_rec + ", name=a\ntarget = " + m_twin + ", name=a\n");
    EXPECT_EQ((std::vector<std::string>{"init", "created:a", "init", "created:a", "destroyed:a", "done", "syslog?:a"}),
              takeEvents());
    EXPECT_EQ((std::vector<std::string>{warning}), problems());
    EXPECT_FALSE(isOpen(m_twin));

    // Both stay named: the later one is refused again at every read.
    m_syslog.clear();
    read("target = " + m_rec + ", name=a\ntarget = " + m_twin + ", name=a\n");
    EXPECT_EQ((std::vector<std::string>{"init", "created:a", "destroyed:a", "done", "syslog?:a"}), takeEvents());
    EXPECT_EQ((std::vector<std::string>{warning}), problems());
    deliver("still first");
    EXPECT_EQ((std::vector<std::string>{"still first"}), CRecorder::instance().messages("a"));

    // The name moves to the other library in one edit: refused, then the old one is unloaded.
    CRecorder::instance().clear();
    m_syslog.clear();
    read("target = " + m_twin + ", name=a\n");
    EXPECT_EQ((std::vector<std::string>{"init", "created:a", "destroyed:a", "done", "destroyed:a", "done"}),
              takeEvents());
    const int refused = indexOf(warning.substr(2));
    const int unloaded = indexOf("logtarget-container: unloading log-target a (and its library " + quoted(m_rec) + ")");
    EXPECT_NE(-1, refused);
    EXPECT_LT(refused, unloaded);
    deliver("nobody");
    EXPECT_TRUE(CRecorder::instance().messages("a").empty());
    EXPECT_FALSE(isOpen(m_rec));

    // The next read loads it from its new library.
    read("target = " + m_twin + ", name=a\n");
    EXPECT_EQ((std::vector<std::string>{"init", "created:a", "syslog?:a"}), takeEvents());
    EXPECT_TRUE(m_syslog.contains("will load target a from lib " + m_twin, LOG_DEBUG));
}

TEST_F(CTargetConfigTest, ReportsEveryFailedCreationAndClosesTheLibrary)
{
    const std::string missing = "/nonexistent/libvexlor-missing-target.so";
    const std::string noFactory = testpaths::noFactory();
    const std::string nullFactory = testpaths::nullFactory();
    read("target = " + missing + "\n" + "target = " + noFactory + "\n" + "target = " + nullFactory + "\n" +
         "target = " + m_rec + ", name=n, create=null\n" + "target = " + m_twin + ", name=o, create=object\n");

    // Every library that opened ran both hooks; the object that is not a target went back.
    EXPECT_EQ((std::vector<std::string>{"init", "done", "init", "done", "init", "created:n", "done", "init",
                                        "created:o", "destroyed", "done"}),
              takeEvents());
    const auto messages = problems();
    ASSERT_EQ(7u, messages.size());
    EXPECT_EQ(0u, messages[0].find("3 Unable to open shared library " + quoted(missing) + " - error="));
    int err = -1;
    char text[128] = {};
    const std::string loadFailure = "3 logtarget-container: Unable to load the logtarget-library " + quoted(missing);
    ASSERT_EQ(0u, messages[1].find(loadFailure + " - errno="));
    ASSERT_EQ(2, std::sscanf(messages[1].c_str() + loadFailure.size(), " - errno=%d(%127[^)])", &err, text));
    EXPECT_STREQ(std::strerror(err), text);
    EXPECT_EQ((std::vector<std::string>{
                  "3 Symbol \"getClassFactory\" not found in shared library " + quoted(noFactory),
                  "3 logtarget-container: Unable to retrieve the classfactory from lib " + quoted(noFactory),
                  "3 logtarget-container: Unable to retrieve the classfactory from lib " + quoted(nullFactory),
                  "3 logtarget-container: Unable to create LogTarget from lib " + quoted(m_rec),
                  "3 logtarget-container: Unable to create LogTarget from lib " + quoted(m_twin)}),
              std::vector<std::string>(messages.begin() + 2, messages.end()));
    for (const std::string& path : {noFactory, nullFactory, m_rec, m_twin}) {
        EXPECT_EQ(1, m_syslog.count("closing shared library " + quoted(path), LOG_DEBUG)) << path;
        EXPECT_FALSE(isOpen(path)) << path;
    }

    // Nothing was registered: no delivery, nothing to unload.
    m_syslog.clear();
    deliver("lost");
    read("# no targets\n");
    EXPECT_TRUE(CRecorder::instance().calls().empty());
    EXPECT_EQ(0, m_syslog.countContaining("unloading"));
}

TEST_F(CTargetConfigTest, ClosesTheLibraryWhenItsFactoryIsGoneAtUnload)
{
    // Without a factory the target cannot be handed back and stays allocated on purpose.
    if (__lsan_disable != nullptr) {
        __lsan_disable();
    }
    read("target = " + m_rec + ", name=a\n");
    CRecorder::instance().clear();
    CRecorder::instance().setFactoryAvailable(false);
    read("# no targets\n");
    EXPECT_EQ((std::vector<std::string>{"done"}), takeEvents());
    EXPECT_TRUE(m_syslog.contains("logtarget-container: unloading log-target a (and its library " + quoted(m_rec) + ")",
                                  LOG_INFO));
    EXPECT_FALSE(isOpen(m_rec));

    // The same when the container releases its targets at its end.
    read("target = " + m_twin + ", name=b\n");
    CRecorder::instance().clear();
    CRecorder::instance().setFactoryAvailable(false);
    m_container.reset();
    EXPECT_EQ((std::vector<std::string>{"done"}), takeEvents());
    EXPECT_FALSE(isOpen(m_twin));
    if (__lsan_enable != nullptr) {
        __lsan_enable();
    }
}

TEST_F(CTargetConfigTest, HasSyslogTargetOnlyWhileAKeptTargetReportsExactlyOne)
{
    EXPECT_FALSE(m_container->hasSyslogTarget());
    const std::string others = "target = " + m_rec + ", name=a, syslog=2\ntarget = " + m_twin + ", name=b, syslog=-1\n";
    read(others);
    EXPECT_FALSE(m_container->hasSyslogTarget());
    // The first in name order answers 1; the others are asked all the same.
    CRecorder::instance().clear();
    read(others + "target = " + testpaths::hookless() + ", name=A, syslog=1\n");
    EXPECT_TRUE(m_container->hasSyslogTarget());
    EXPECT_EQ((std::vector<std::string>{"created:A", "syslog?:A", "syslog?:a", "syslog?:b"}), takeEvents());

    // A failed read clears the flag although the target is still loaded.
    unlink(m_dir.file("vexlor.cfg").c_str());
    m_container->onCfgUpdate();
    EXPECT_FALSE(m_container->hasSyslogTarget());
    deliver("kept");
    EXPECT_EQ((std::vector<std::string>{"kept"}), CRecorder::instance().messages("A"));

    read(others);
    EXPECT_FALSE(m_container->hasSyslogTarget());
    EXPECT_TRUE(m_syslog.contains(
        "logtarget-container: unloading log-target A (and its library " + quoted(testpaths::hookless()) + ")", LOG_INFO));
}

}  // namespace
