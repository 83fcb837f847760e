// The plug-in loader against a real library opened with dlopen: hooks, repeated loads and the
// class factory look-up. Failed loads are checked through the container.
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

// Every debug text once; a module that never opened has nothing to close.
TEST_F(CDynamicModuleTest, RunsEachHookOnceAndCallsTheFactoryAnewEveryTime)
{
    const std::string path = testpaths::recorder();
    const std::string q = quoted(path);
    int marker = 0;
    {
        const CDynamicModule missing("/nonexistent/libvexlor-missing-target.so");
        EXPECT_EQ(nullptr, missing.getClassFactory());
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
    EXPECT_EQ((Lines{"3 Library not loaded", "7 opened shared library " + q,
                     "7 calling init function for shared library " + q, "7 Dynamic module " + path + " already loaded",
                     retrieving, retrieving, "7 Calling done function for shared library " + q,
                     "7 closing shared library " + q}),
              takeLines(m_syslog));
}

}  // namespace
