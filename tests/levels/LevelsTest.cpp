// Level records: the standard objects and their aliases, created levels and their masks, and the
// conversions to a syslog priority, a mask and a number. (Concurrent creation runs in the lock
// order stress test of the main instance.) The component registry of the main instance: creation
// and lookup, masks set by the configuration sink and by name, level descriptions, and
// announcements to the targets.
#include <algorithm>
#include <syslog.h>
#include <tuple>
#include <utility>

#include "CMainInstanceTest.h"
#include "core/CVexlor.h"

namespace {

TEST(LevelsTest, StandardAndCreatedLevelsHaveTheirNumbersMasksAndPriorities)
{
    const auto facts = [](vexlor_level* level) {
        return std::make_tuple(vexlor_level_to_numeric(level), vexlor_level_to_mask(level),
                               vexlor_level_to_prio(level));
    };
    const std::vector<vexlor_level*> ranked{VX_EMERG,  VX_ALERT, VX_CRIT,  VX_ERR,       VX_WARNING,
                                            VX_NOTICE, VX_INFO,  VX_DEBUG, VX_ENTERLEAVE};
    for (unsigned int n = 0; n < ranked.size(); ++n) {
        EXPECT_EQ(std::make_tuple(n, 1u << n, static_cast<int>(std::min(n, 7u))), facts(ranked[n]));
    }
    EXPECT_EQ(std::make_tuple(32u, 0xFFFFFFFFu, 7), facts(VX_ALL));
    EXPECT_EQ(std::make_tuple(0u, 0u, 7), facts(nullptr));
    EXPECT_TRUE(VX_ERR == VX_ERROR && VX_WARNING == VX_WARN);

    // Created levels are new records, with a single bit up to number 31 and none above; the
    // priority is 7 from number 7 on, compared without sign.
    EXPECT_NE(VX_WARN, vexlor_level_create(4));
    const std::tuple<unsigned int, unsigned int, int> created[] = {
        {4, 0x10, 4}, {31, 0x80000000u, 7}, {32, 0, 7}, {0xFFFFFFFFu, 0, 7}};
    for (const auto& [n, mask, priority] : created) {
        EXPECT_EQ(std::make_tuple(n, mask, priority), facts(vexlor_level_create(n)));
    }
}

using Entries = std::vector<std::pair<unsigned int, std::string>>;
using Announcements = std::vector<std::pair<std::string, unsigned int>>;  // name, mask at the time

using CVexlorComponentsTest = CMainInstanceTest;

TEST_F(CVexlorComponentsTest, CreatesEachNameOnceAnnouncesItAndTakesMasksFromTheConfiguration)
{
    // What the target was told since the last call.
    const auto takeAnnouncements = [] {
        Announcements result;
        for (const CRecordedCall& call : CRecorder::instance().calls("component", "rec")) {
            result.emplace_back(call.text, call.componentLevel);
        }
        CRecorder::instance().clear();
        return result;
    };
    const auto descriptions = [](const std::string& name, Entries entries = {}) {
        vexlor_get_level_descriptions(name, entries);
        return entries;
    };
    vexlor_component* net = vexlor_create_component("net", VX_INFO, "0=off,1=on");
    EXPECT_EQ("net", vexlor_get_name_by_component(net));
    // Asked for again: same record, mask kept, descriptions appended to the caller's vector.
    EXPECT_EQ(net, vexlor_create_component("net", VX_DEBUG, "2=more"));
    EXPECT_EQ((Entries{{9, "kept"}, {0, "off"}, {1, "on"}, {2, "more"}}), descriptions("net", {{9, "kept"}}));
    EXPECT_EQ(Entries{}, descriptions("unknown"));
    EXPECT_EQ(0u, vexlor_create_component("b", nullptr, nullptr)->level);
    vexlor_create_component("B", VX_ERR, "");
    EXPECT_EQ((Announcements{{"net", 0x40}, {"net", 0x40}, {"b", 0}, {"B", 0x8}}), takeAnnouncements());

    EXPECT_EQ(nullptr, vexlor_create_component(nullptr, VX_ALL, ""));
    EXPECT_EQ(1, m_syslog.countStarting("vexlor_create_component: no component name given", LOG_ERR));

    // Setting a mask by name neither creates nor announces.
    vexlor_set_component_level("net", 0x81);
    vexlor_set_component_level("nett", 0x81);
    EXPECT_EQ(std::make_pair(0x81u, 0u),
              std::make_pair(vexlor_get_component_level("net"), vexlor_get_component_level("nett")));
    EXPECT_TRUE(takeAnnouncements().empty());
    EXPECT_EQ(net, vexlor_get_component_by_name("net"));
    std::vector<std::string> listed{"kept"};
    vexlor_get_component_names(listed);
    EXPECT_EQ((std::vector<std::string>{"kept", "B", "b", "net"}), listed);

    // A component the configuration created first keeps its mask when the application creates it
    // and gains its descriptions. Characters other than '1' are 0 bits; only the last 32 count.
    EXPECT_EQ(0, CVexlor::getInstance()->updateComponentLevel("disk", "1x1"));
    vexlor_component* disk = vexlor_create_component("disk", VX_ERR, "0=off");
    EXPECT_EQ(0x5u, disk->level);
    EXPECT_EQ((Entries{{0, "off"}}), descriptions("disk"));
    EXPECT_EQ(0, CVexlor::getInstance()->updateComponentLevel("disk", "1" + std::string(32, '0')));
    EXPECT_EQ(0x0u, disk->level);
    EXPECT_EQ((Announcements{{"disk", 0x5}, {"disk", 0x5}, {"disk", 0}}), takeAnnouncements());
}

}  // namespace
