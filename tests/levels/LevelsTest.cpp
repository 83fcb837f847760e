// Level records: the standard objects and their aliases, created levels and their masks, and the
// conversions to a syslog priority, a mask and a number.
#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <vexlor/vexlor.h>

namespace {

TEST(LevelsTest, StandardAndCreatedLevelsHaveTheirNumbersMasksAndPriorities)
{
    const std::vector<vexlor_level*> ranked{VX_EMERG, VX_ALERT, VX_CRIT, VX_ERR, VX_WARNING,
                                            VX_NOTICE, VX_INFO, VX_DEBUG, VX_ENTERLEAVE};
    for (unsigned int n = 0; n < ranked.size(); ++n) {
        EXPECT_EQ(n, vexlor_level_to_numeric(ranked[n]));
        EXPECT_EQ(1u << n, vexlor_level_to_mask(ranked[n]));
        EXPECT_EQ(static_cast<int>(std::min(n, 7u)), vexlor_level_to_prio(ranked[n]));
    }
    EXPECT_EQ(std::make_tuple(32u, 0xFFFFFFFFu, 7), std::make_tuple(vexlor_level_to_numeric(VX_ALL),
                                                                     vexlor_level_to_mask(VX_ALL),
                                                                     vexlor_level_to_prio(VX_ALL)));
    EXPECT_EQ(std::make_tuple(0u, 0u, 7), std::make_tuple(vexlor_level_to_numeric(nullptr),
                                                          vexlor_level_to_mask(nullptr), vexlor_level_to_prio(nullptr)));
    EXPECT_EQ(VX_ERR, VX_ERROR);
    EXPECT_EQ(VX_WARNING, VX_WARN);

    // Created levels are new records, with a single bit up to number 31 and none above; the
    // priority is 7 from number 7 on, compared without sign.
    EXPECT_NE(VX_WARN, vexlor_level_create(4));
    const std::pair<unsigned int, unsigned int> created[] = {{4, 0x10}, {31, 0x80000000u}, {32, 0}, {0xFFFFFFFFu, 0}};
    for (const auto& [n, mask] : created) {
        vexlor_level* level = vexlor_level_create(n);
        EXPECT_EQ(std::make_pair(n, mask), std::make_pair(level->numeric, level->mask));
        EXPECT_EQ(n == 4 ? 4 : 7, vexlor_level_to_prio(level)) << n;
    }
}

// Appends from two threads lose no record and mix up none.
TEST(LevelsTest, ConcurrentCreationKeepsEveryRecord)
{
    std::vector<vexlor_level*> made[2];
    const auto create = [](std::vector<vexlor_level*>* out) {
        for (unsigned int i = 0; i < 2000; ++i) {
            out->push_back(vexlor_level_create(i % 32));
        }
    };
    std::thread other(create, &made[0]);
    create(&made[1]);
    other.join();
    std::set<vexlor_level*> distinct;
    for (const auto& levels : made) {
        for (unsigned int i = 0; i < levels.size(); ++i) {
            ASSERT_EQ(std::make_pair(i % 32, 1u << (i % 32)), std::make_pair(levels[i]->numeric, levels[i]->mask));
            distinct.insert(levels[i]);
        }
    }
    EXPECT_EQ(4000u, distinct.size());
}

}  // namespace
