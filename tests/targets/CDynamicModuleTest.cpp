// The plug-in loader against real libraries opened with dlopen: hooks, repeated loads, failures
// and the class factory look-up.
#include <gtest/gtest.h>

#include "pluginProbes.h"
#include "targets/CDynamicModule.h"
#include "testPaths.h"

namespace {

using Lines = std::vector<std::string>;

struct CDynamicModuleTest : ::testing::Test {
    CDynamicModuleTest() { CRecorder::instance().clear(); }
    CSyslogCapture m_syslog;
};

TEST_F(CDynamicModuleTest, RunsEachHookOnceAndCallsTheFactoryAnewEveryTime)
{
    const std::string path = testpaths::recorder();
    const std::string q = quoted(path);
    int marker = 0;
    {
        CDynamicModule module(path);
        EXPECT_EQ(0, module.load(&marker));
        EXPECT_EQ(-1, module.load(nullptr));
        EXPECT_NE(nullptr, module.getClassFactory());
        CRecorder::instance().setFactoryAvailable(false);  // the plug-in's own null goes back unchanged
        EXPECT_EQ(nullptr, module.getClassFactory());
        EXPECT_EQ(2u, CRecorder::instance().calls("factory").size());
        EXPECT_EQ(&marker, CRecorder::instance().calls("init").at(0).hookArgument);
        EXPECT_EQ(Lines{"init"}, takeEvents());
    }
    EXPECT_EQ(Lines{"done"}, takeEvents());
    EXPECT_FALSE(isOpen(path));
    const std::string retrieving = "7 Retrieving classfactory from shared library " + q;
    EXPECT_EQ((Lines{"7 opened shared library " + q, "7 calling init function for shared library " + q,
                     "7 Dynamic module " + path + " already loaded", retrieving, retrieving,
                     "7 Calling done function for shared library " + q, "7 closing shared library " + q}),
              takeLines(m_syslog));
}

// Without hooks a library loads all the same; one that never opened has nothing to close.
TEST_F(CDynamicModuleTest, ReportsAMissingLibraryAndDoesWithoutHooks)
{
    {
        CDynamicModule module("/nonexistent/libvexlor-missing-target.so");
        EXPECT_EQ(-1, module.load(nullptr));
        EXPECT_EQ(nullptr, module.getClassFactory());
        EXPECT_EQ(1, m_syslog.count("Library not loaded", LOG_ERR));
        m_syslog.clear();
    }
    const std::string hookless = testpaths::hookless();
    {
        CDynamicModule module(hookless);
        ASSERT_EQ(0, module.load(nullptr));
        EXPECT_NE(nullptr, module.getClassFactory());
    }
    EXPECT_FALSE(isOpen(hookless));
    EXPECT_EQ((Lines{"7 opened shared library " + quoted(hookless),
                     "7 Retrieving classfactory from shared library " + quoted(hookless),
                     "7 closing shared library " + quoted(hookless)}),
              takeLines(m_syslog));
}

}  // namespace
