// Level records: the standard objects and their aliases, created levels and their masks, and the
// conversions to a syslog priority, a mask and a number. (Concurrent creation runs in the lock
// order stress test of the main instance.)
#include <algorithm>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

#include <vexlor/vexlor.h>

namespace {

TEST(LevelsTest, StandardAndCreatedLevelsHaveTheirNumbersMasksAndPriorities)
{
    const std::vector<vexlor_level*> ranked{VX_EMERG, VX_ALERT, VX_CRIT, VX_ERR, VX_WARNING,
                                            VX_NOTICE, VX_INFO, VX_DEBUG, VX_ENTERLEAVE};
    for (unsigned int n = 0; n < ranked.size(); ++n) {
        EXPECT_EQ(std::make_tuple(n, 1u << n, static_cast<int>(std::min(n, 7u))),
                  std::make_tuple(vexlor_level_to_numeric(ranked[n]), vexlor_level_to_mask(ranked[n]),
                                  vexlor_level_to_prio(ranked[n])));
    }
    EXPECT_EQ(std::make_tuple(32u, 0xFFFFFFFFu, 7),
              std::make_tuple(vexlor_level_to_numeric(VX_ALL), vexlor_level_to_mask(VX_ALL), vexlor_level_to_prio(VX_ALL)));
    EXPECT_EQ(std::make_tuple(0u, 0u, 7), std::make_tuple(vexlor_level_to_numeric(nullptr),
                                                          vexlor_level_to_mask(nullptr), vexlor_level_to_prio(nullptr)));
    EXPECT_TRUE(VX_ERR == VX_ERROR && VX_WARNING == VX_WARN);

    // Created levels are new records, with a single bit up to number 31 and none above; the
    // priority is 7 from number 7 on, compared without sign.
    EXPECT_NE(VX_WARN, vexlor_level_create(4));
    const std::tuple<unsigned int, unsigned int, int> created[] = {{4, 0x10, 4}, {31, 0x80000000u, 7}, {32, 0, 7},
                                                                   {0xFFFFFFFFu, 0, 7}};
    for (const auto& [n, mask, priority] : created) {
        vexlor_level* level = vexlor_level_create(n);
        EXPECT_EQ(std::make_tuple(n, mask, priority), std::make_tuple(level->numeric, level->mask, vexlor_level_to_prio(level)));
    }
}

}  // namespace
