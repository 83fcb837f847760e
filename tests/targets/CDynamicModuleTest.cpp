// The plug-in loader against real libraries opened with dlopen: hooks, repeated loads, failures
// and the class factory look-up.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>

#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "pluginProbes.h"
#include "targets/CDynamicModule.h"
#include "testPaths.h"

namespace {

// How often the plug-in at `path` (already open) ran its getClassFactory.
int factoryCalls(const std::string& path)
{
    void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return -1;
    }
    auto calls = reinterpret_cast<int (*)()>(dlsym(handle, "recordingTargetFactoryCalls"));
    const int result = calls != nullptr ? calls() : -1;
    dlclose(handle);
    return result;
}

class CDynamicModuleTest : public ::testing::Test {
protected:
    void SetUp() override { CRecorder::instance().clear(); }
    void TearDown() override { CRecorder::instance().clear(); }

    // The captured messages as "<priority> <text>".
    std::vector<std::string> syslogLines() const
    {
        std::vector<std::string> lines;
        for (const CSyslogMessage& message : m_syslog.messages()) {
            lines.push_back(std::to_string(message.priority) + " " + message.text);
        }
        return lines;
    }

    CSyslogCapture m_syslog;
};

TEST_F(CDynamicModuleTest, LibraryWithoutHooksLogsOnlyOpenRetrieveAndClose)
{
    const std::string path = testpaths::hookless();
    {
        CDynamicModule module(path);
        EXPECT_EQ(path, module.getLibPath());
        ASSERT_EQ(0, module.load(nullptr));
        EXPECT_NE(nullptr, module.getClassFactory());
        EXPECT_TRUE(isOpen(path));
    }
    EXPECT_FALSE(isOpen(path));
    EXPECT_EQ((std::vector<std::string>{"7 opened shared library " + quoted(path),
                                        "7 Retrieving classfactory from shared library " + quoted(path),
                                        "7 closing shared library " + quoted(path)}),
              syslogLines());
    EXPECT_TRUE(CRecorder::instance().calls().empty());
}

TEST_F(CDynamicModuleTest, LoadRunsInitHookOnceWithItsPointerAndDestructionRunsDoneHook)
{
    const std::string path = testpaths::recorder();
    int marker = 0;
    {
        CDynamicModule module(path);
        EXPECT_EQ(0, module.load(&marker));
        EXPECT_EQ(-1, module.load(nullptr));
        const auto inits = CRecorder::instance().calls("init");
        ASSERT_EQ(1u, inits.size());
        EXPECT_EQ(&marker, inits[0].hookArgument);
        EXPECT_TRUE(CRecorder::instance().calls("done").empty());
    }
    EXPECT_EQ(1u, CRecorder::instance().calls("done").size());
    EXPECT_FALSE(isOpen(path));
    EXPECT_EQ((std::vector<std::string>{"7 opened shared library " + quoted(path),
                                        "7 calling init function for shared library " + quoted(path),
                                        "7 Dynamic module " + path + " already loaded",
                                        "7 Calling done function for shared library " + quoted(path),
                                        "7 closing shared library " + quoted(path)}),
              syslogLines());

    // A null pointer reaches the hook as null.
    CRecorder::instance().clear();
    CDynamicModule again(path);
    ASSERT_EQ(0, again.load(nullptr));
    const auto inits = CRecorder::instance().calls("init");
    ASSERT_EQ(1u, inits.size());
    EXPECT_EQ(nullptr, inits[0].hookArgument);
}

TEST_F(CDynamicModuleTest, FactoryIsLookedUpAndCalledAnewEveryTime)
{
    const std::string path = testpaths::recorder();
    CDynamicModule module(path);
    ASSERT_EQ(0, module.load(nullptr));
    const int before = factoryCalls(path);
    m_syslog.clear();
    IClassFactory* first = module.getClassFactory();
    IClassFactory* second = module.getClassFactory();
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, second);
    EXPECT_EQ(before + 2, factoryCalls(path));
    EXPECT_EQ(2, m_syslog.count("Retrieving classfactory from shared library " + quoted(path), LOG_DEBUG));

    // The plug-in's own null goes back unchanged.
    CRecorder::instance().setFactoryAvailable(false);
    EXPECT_EQ(nullptr, module.getClassFactory());
}

TEST_F(CDynamicModuleTest, ReportsUnopenableLibraryAndMissingFactory)
{
    const std::string missing = "/nonexistent/libvexlor-missing-target.so";
    {
        CDynamicModule module(missing);
        EXPECT_EQ(-1, module.load(nullptr));
        const auto messages = m_syslog.messages();
        ASSERT_EQ(1u, messages.size());
        EXPECT_EQ(LOG_ERR, messages[0].priority);
        const std::string prefix = "Unable to open shared library " + quoted(missing) + " - error=";
        EXPECT_EQ(prefix, messages[0].text.substr(0, prefix.size()));
        EXPECT_GT(messages[0].text.size(), prefix.size());

        m_syslog.clear();
        EXPECT_EQ(nullptr, module.getClassFactory());
        EXPECT_EQ((std::vector<std::string>{"3 Library not loaded"}), syslogLines());
        m_syslog.clear();
    }
    // Never opened: destruction logs nothing and runs no hook.
    EXPECT_TRUE(m_syslog.messages().empty());

    const std::string noFactory = testpaths::noFactory();
    {
        CDynamicModule module(noFactory);
        ASSERT_EQ(0, module.load(nullptr));
        m_syslog.clear();
        EXPECT_EQ(nullptr, module.getClassFactory());
        EXPECT_EQ((std::vector<std::string>{"3 Symbol \"getClassFactory\" not found in shared library " +
                                            quoted(noFactory)}),
                  syslogLines());
    }
    // The library is closed all the same, after its done hook.
    EXPECT_EQ(1u, CRecorder::instance().calls("done").size());
    EXPECT_FALSE(isOpen(noFactory));
}

}  // namespace
