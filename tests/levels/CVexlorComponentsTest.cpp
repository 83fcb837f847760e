// The component registry of the main instance: creation and lookup, masks set by the
// configuration sink and by name, level descriptions, and announcements to the targets.
#include <syslog.h>
#include <utility>

#include "CMainInstanceTest.h"
#include "core/CVexlor.h"

namespace {

using Entries = std::vector<std::pair<unsigned int, std::string>>;
using Announcements = std::vector<std::pair<std::string, unsigned int>>;  // name, mask at the time

class CVexlorComponentsTest : public CMainInstanceTest {
protected:
    // What the target was told since the last call.
    static Announcements takeAnnouncements()
    {
        Announcements result;
        for (const CRecordedCall& call : CRecorder::instance().calls("component", "rec")) {
            result.emplace_back(call.text, call.componentLevel);
        }
        CRecorder::instance().clear();
        return result;
    }

    static Entries descriptions(const std::string& name, Entries entries = {})
    {
        vexlor_get_level_descriptions(name, entries);
        return entries;
    }
};

TEST_F(CVexlorComponentsTest, CreatesEachNameOnceAndAnnouncesIt)
{
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
    EXPECT_EQ(std::make_pair(0x81u, 0u), std::make_pair(vexlor_get_component_level("net"), vexlor_get_component_level("nett")));
    EXPECT_TRUE(takeAnnouncements().empty());
    EXPECT_EQ(net, vexlor_get_component_by_name("net"));
    std::vector<std::string> listed{"kept"};
    vexlor_get_component_names(listed);
    EXPECT_EQ((std::vector<std::string>{"kept", "B", "b", "net"}), listed);
}

// A component the configuration created first keeps its mask when the application creates it and
// gains its descriptions. Characters other than '1' are 0 bits; only the last 32 count.
TEST_F(CVexlorComponentsTest, ConfigurationSinkSetsMasksFromBitStrings)
{
    CVexlor* core = CVexlor::getInstance();
    EXPECT_EQ(0, core->updateComponentLevel("disk", "1x1"));
    vexlor_component* disk = vexlor_create_component("disk", VX_ERR, "0=off");
    EXPECT_EQ(0x5u, disk->level);
    EXPECT_EQ((Entries{{0, "off"}}), descriptions("disk"));
    EXPECT_EQ(0, core->updateComponentLevel("disk", "1" + std::string(32, '0')));
    EXPECT_EQ(0x0u, disk->level);
    EXPECT_EQ((Announcements{{"disk", 0x5}, {"disk", 0x5}, {"disk", 0}}), takeAnnouncements());
}

}  // namespace
