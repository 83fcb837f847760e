// The levels= parameter every shipped target accepts. The level names are proven by the line
// layout's %l.
#include <gtest/gtest.h>
#include <stdexcept>

#include "CLevelSet.h"

namespace {

std::string passing(const CLevelSet& set)
{
    std::string result;
    for (vexlor_level* level : {VX_EMERG, VX_ALERT, VX_CRIT, VX_ERR, VX_WARN, VX_NOTICE, VX_INFO, VX_DEBUG,
                                VX_ENTERLEAVE, VX_ALL}) {
        result += set.contains(level) ? '1' : '0';
    }
    return result;
}

TEST(CLevelSetTest, ReadsNamesNumbersAndRangesInAnyCase)
{
    EXPECT_EQ("1111111111", passing(CLevelSet()));
    EXPECT_EQ("1111100000", passing(CLevelSet("emerg-WARN")));
    EXPECT_EQ("1111100000", passing(CLevelSet("4-0")));
    EXPECT_EQ("0000000010", passing(CLevelSet("trace")));
    EXPECT_EQ("0001000011", passing(CLevelSet(" error|enterleave 32 ")));
    EXPECT_EQ("1111111111", passing(CLevelSet("all")));
    vexlor_level created{12, 1u << 12};
    EXPECT_TRUE(CLevelSet("10-12").contains(&created));
    EXPECT_FALSE(CLevelSet("debug").contains(&created));
}

TEST(CLevelSetTest, RefusesWhatIsNoLevelNamingTheItem)
{
    for (const char* bad : {"warn-", "loud", "33", "0-99", " | "}) {
        EXPECT_THROW(CLevelSet{bad}, std::invalid_argument) << bad;
    }
    try {
        CLevelSet("info|loud");
        FAIL();
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string::npos, std::string(e.what()).find("\"loud\" is not a level"));
    }
}

}  // namespace
