// The levels= parameter every shipped target accepts. The level names are proven by the line
// layout's %l.
#include <gtest/gtest.h>
#include <stdexcept>

#include "CLevelSet.h"

namespace {

TEST(CLevelSetTest, ReadsNamesNumbersAndRangesInAnyCaseAndRefusesWhatIsNoLevel)
{
    // Which of emerg ... debug, trace and all pass, and whether a created level 12 does.
    const std::pair<const char*, const char*> cases[] = {
        {nullptr, "11111111111"},
        {"emerg-WARN", "11111000000"},
        {"4-0", "11111000000"},
        {"trace", "00000000100"},
        {" error|enterleave 32 ", "00010000110"},
        {"all", "11111111111"},
        {"10-12", "00000000001"},
    };
    vexlor_level created{12, 1u << 12};
    for (const auto& [text, expected] : cases) {
        const CLevelSet set = text != nullptr ? CLevelSet(text) : CLevelSet();
        std::string passing;
        for (vexlor_level* level : {VX_EMERG, VX_ALERT, VX_CRIT, VX_ERR, VX_WARN, VX_NOTICE, VX_INFO, VX_DEBUG,
                                    VX_ENTERLEAVE, VX_ALL, &created}) {
            passing += set.contains(level) ? '1' : '0';
        }
        EXPECT_EQ(expected, passing) << (text != nullptr ? text : "(default)");
    }
    for (const char* bad : {"warn-", "loud", "33", "0-99", " | ", "info|loud"}) {
        EXPECT_THROW(CLevelSet{bad}, std::invalid_argument) << bad;
    }
}

}  // namespace
