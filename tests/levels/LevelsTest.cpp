// Level records: the standard objects and their aliases, created levels and their masks, and the
// conversions to a syslog priority, a mask and a number.
#include <gtest/gtest.h>
#include <functional>
#include <set>
#include <thread>
#include <vector>

#include <vexlor/vexlor.h>

namespace {

TEST(LevelsTest, StandardObjectsHaveTheirNumbersAndMasks)
{
    const std::vector<vexlor_level*> ranked{VX_EMERG, VX_ALERT, VX_CRIT, VX_ERR, VX_WARNING,
                                            VX_NOTICE, VX_INFO, VX_DEBUG, VX_ENTERLEAVE};
    for (unsigned int n = 0; n < ranked.size(); ++n) {
        ASSERT_NE(nullptr, ranked[n]);
        EXPECT_EQ(n, vexlor_level_to_numeric(ranked[n]));
        EXPECT_EQ(1u << n, vexlor_level_to_mask(ranked[n]));
    }
    EXPECT_EQ(32u, vexlor_level_to_numeric(VX_ALL));
    EXPECT_EQ(0xFFFFFFFFu, vexlor_level_to_mask(VX_ALL));

    EXPECT_EQ(VX_ERR, VX_ERROR);
    EXPECT_EQ(VX_WARNING, VX_WARN);
    std::set<vexlor_level*> distinct(ranked.begin(), ranked.end());
    distinct.insert(VX_ALL);
    EXPECT_EQ(10u, distinct.size());
}

TEST(LevelsTest, CreatedLevelsAreNewRecordsWithSingleBitMasks)
{
    vexlor_level* warn = vexlor_level_create(4);
    EXPECT_NE(VX_WARN, warn);
    EXPECT_EQ(VX_WARN->numeric, warn->numeric);
    EXPECT_EQ(VX_WARN->mask, warn->mask);
    EXPECT_NE(warn, vexlor_level_create(4));

    EXPECT_EQ(0x80000000u, vexlor_level_create(31)->mask);
    for (unsigned int n : {32u, 40u, 0xFFFFFFFFu}) {
        vexlor_level* level = vexlor_level_create(n);
        EXPECT_EQ(n, level->numeric);
        EXPECT_EQ(0u, level->mask) << n;
    }
}

TEST(LevelsTest, MapsLevelsToSyslogPriorities)
{
    EXPECT_EQ(7, vexlor_level_to_prio(nullptr));
    EXPECT_EQ(0, vexlor_level_to_prio(VX_EMERG));
    EXPECT_EQ(3, vexlor_level_to_prio(VX_ERROR));
    EXPECT_EQ(6, vexlor_level_to_prio(VX_INFO));
    EXPECT_EQ(7, vexlor_level_to_prio(VX_DEBUG));
    EXPECT_EQ(7, vexlor_level_to_prio(VX_ENTERLEAVE));
    EXPECT_EQ(7, vexlor_level_to_prio(VX_ALL));
    EXPECT_EQ(7, vexlor_level_to_prio(vexlor_level_create(100)));
    // Compared without sign: a huge number is no negative priority.
    EXPECT_EQ(7, vexlor_level_to_prio(vexlor_level_create(0x80000000u)));
}

TEST(LevelsTest, ConcurrentCreationKeepsEveryRecord)
{
    constexpr unsigned int PER_THREAD = 2000;
    std::vector<vexlor_level*> made[2];
    auto creator = [](std::vector<vexlor_level*>& out) {
        for (unsigned int i = 0; i < PER_THREAD; ++i) {
            out.push_back(vexlor_level_create(i % 32));
        }
    };
    std::thread first(creator, std::ref(made[0]));
    std::thread second(creator, std::ref(made[1]));
    first.join();
    second.join();
    std::set<vexlor_level*> distinct;
    for (const auto& levels : made) {
        for (unsigned int i = 0; i < PER_THREAD; ++i) {
            ASSERT_EQ(i % 32, levels[i]->numeric);
            ASSERT_EQ(1u << (i % 32), levels[i]->mask);
            distinct.insert(levels[i]);
        }
    }
    EXPECT_EQ(2 * PER_THREAD, distinct.size());
}

}  // namespace
