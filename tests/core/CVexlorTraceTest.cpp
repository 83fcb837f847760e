// Function tracing: the entering/leaving records, and the name stack and depth that every record
// of the thread carries, kept also when the tracing records themselves are filtered out.
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "testPaths.h"

namespace {

using Seen = std::tuple<std::string, std::string, int>;  // message, function, depth

class CVexlorTraceTest : public ::testing::Test {
protected:
    void SetUp() override { m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec")); }

    static std::vector<Seen> seen()
    {
        std::vector<Seen> result;
        for (const CRecordedCall& record : CRecorder::instance().calls("log", "rec")) {
            result.emplace_back(record.message, record.functionName, record.depth);
        }
        return result;
    }

    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};

TEST_F(CVexlorTraceTest, NestedFunctionsGiveNamesAndDepths)
{
    vexlor_component* app = vexlor_create_component("app", VX_ALL, "");
    vexlor(app, VX_INFO, "before");
    vexlor_enter_function(app, "a");
    vexlor_enter_function(app, "b");
    vexlor(app, VX_INFO, "inside");
    vexlor_leave_function(app);
    vexlor_leave_function(app);
    vexlor(app, VX_INFO, "after");
    const std::vector<Seen> expected{
        {"before", "", 0}, {"entering", "a", 0}, {"entering", "b", 1}, {"inside", "b", 2},
        {"leaving", "b", 1}, {"leaving", "a", 0}, {"after", "", 0},
    };
    EXPECT_EQ(expected, seen());
    for (const CRecordedCall& record : CRecorder::instance().calls("log", "rec")) {
        if (record.message == "entering" || record.message == "leaving") {
            EXPECT_EQ(VX_ENTERLEAVE, record.level);
        }
    }
}

TEST_F(CVexlorTraceTest, LeaveWithoutEnterTakesTheDepthBelowZero)
{
    vexlor_component* app = vexlor_create_component("app", VX_ALL, "");
    // A fresh thread, so that its record starts empty.
    std::thread([app] {
        vexlor_leave_function(app);
        vexlor_enter_function(app, "x");
        vexlor(app, VX_INFO, "inside");
    }).join();
    const std::vector<Seen> expected{{"leaving", "", -1}, {"entering", "x", -1}, {"inside", "x", 0}};
    EXPECT_EQ(expected, seen());
}

TEST_F(CVexlorTraceTest, KeepsTheStackWhenTracingRecordsAreFilteredOut)
{
    vexlor_component* errors = vexlor_create_component("errors", VX_ERR, "");
    vexlor_enter_function(errors, "f");
    vexlor(errors, VX_ERR, "in f");
    vexlor_enter_function(nullptr, "g");
    vexlor(errors, VX_ERR, "in g");
    EXPECT_THROW(vexlor_enter_function(errors, nullptr), std::logic_error);
    vexlor(errors, VX_ERR, "still in g");
    vexlor_leave_function(nullptr);
    vexlor(errors, VX_ERR, "back in f");
    const std::vector<Seen> expected{
        {"in f", "f", 1}, {"in g", "g", 2}, {"still in g", "g", 2}, {"back in f", "f", 1},
    };
    EXPECT_EQ(expected, seen());
}

}  // namespace
