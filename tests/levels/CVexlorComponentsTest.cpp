// The component registry of the main instance: creation and lookup, masks set by the
// configuration sink and by name, level descriptions, announcements to the targets, and the
// fallback component handed out when a component cannot be allocated.
#include <atomic>
#include <new>
#include <syslog.h>
#include <utility>

#include "CMainInstanceTest.h"
#include "core/CVexlor.h"

namespace {

// While set, the nothrow operator new below fails, as it does when memory runs out.
std::atomic<bool> failNothrowNew{false};

}  // namespace

// Replaces the standard one for the whole process, the library included.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return failNothrowNew ? nullptr : ::operator new(size);
    } catch (...) {
        return nullptr;
    }
}

namespace {

using Strings = std::vector<std::string>;
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
    // Asked for again: same record, mask kept (see the announcements), descriptions appended to the
    // caller's vector.
    EXPECT_EQ(net, vexlor_create_component("net", VX_DEBUG, "2=more"));
    EXPECT_EQ((Entries{{9, "kept"}, {0, "off"}, {1, "on"}, {2, "more"}}), descriptions("net", {{9, "kept"}}));
    EXPECT_EQ(Entries{}, descriptions("unknown"));
    EXPECT_EQ(0u, vexlor_create_component("b", nullptr, nullptr)->level);
    vexlor_create_component("B", VX_ERR, "");
    vexlor_create_component("", VX_ERR, "");  // a name like any other
    EXPECT_EQ((Announcements{{"net", 0x40}, {"net", 0x40}, {"b", 0}, {"B", 0x8}, {"", 0x8}}), takeAnnouncements());

    // A null name is refused with a message, nothing is created.
    EXPECT_EQ(nullptr, vexlor_create_component(nullptr, VX_ALL, ""));
    EXPECT_EQ(1, m_syslog.count("vexlor_create_component: no component name given (null) - no component created",
                                LOG_ERR));
    EXPECT_EQ("", vexlor_get_name_by_component(nullptr));

    // Setting a mask by name neither creates nor announces.
    vexlor_set_component_level("net", 0x81);
    vexlor_set_component_level("nett", 0x81);
    EXPECT_EQ(0x81u, vexlor_get_component_level("net"));
    EXPECT_EQ(0u, vexlor_get_component_level("nett"));
    EXPECT_TRUE(takeAnnouncements().empty());
    EXPECT_EQ(net, vexlor_get_component_by_name("net"));
    Strings listed{"kept"};
    vexlor_get_component_names(listed);
    EXPECT_EQ((Strings{"kept", "", "B", "b", "net"}), listed);
}

TEST_F(CVexlorComponentsTest, ConfigurationSinkSetsMasksFromBitStrings)
{
    CVexlor* core = CVexlor::getInstance();
    EXPECT_EQ(0, core->updateComponentLevel("disk", "101"));
    EXPECT_EQ(1, m_syslog.count("Creating new component disk (level=0x5)", LOG_DEBUG));
    EXPECT_EQ((Announcements{{"disk", 0x5}}), takeAnnouncements());
    // Created by the configuration first, described by the application later.
    vexlor_component* disk = vexlor_create_component("disk", VX_ERR, "0=off");
    EXPECT_EQ((Entries{{0, "off"}}), descriptions("disk"));
    takeAnnouncements();

    // Other characters are 0 bits, and only the last 32 characters count.
    const std::pair<std::string, unsigned int> updates[] = {
        {"", 0x0}, {"1x1", 0x5}, {std::string(33, '1'), 0xFFFFFFFF}, {"1" + std::string(32, '0'), 0x0}};
    for (const auto& [bits, mask] : updates) {
        SCOPED_TRACE(bits);
        EXPECT_EQ(0, core->updateComponentLevel("disk", bits));
        EXPECT_EQ(mask, disk->level);
        EXPECT_EQ((Announcements{{"disk", mask}}), takeAnnouncements());
    }
    EXPECT_EQ(1, m_syslog.count("Updating level for existing component disk (old level: 0xffffffff, new level: 0x0",
                                LOG_DEBUG));
}

TEST_F(CVexlorComponentsTest, HandsOutTheFallbackComponentWhenAllocationFails)
{
    CVexlor::getInstance();  // built while memory is there
    failNothrowNew = true;
    vexlor_component* fallback = vexlor_create_component("mem", VX_INFO, "0=off");
    failNothrowNew = false;
    ASSERT_EQ(&CVexlor::ms_OOMFallbackComp, fallback);
    EXPECT_EQ("OOM-Ohno!", fallback->name);
    EXPECT_EQ(0xFFFFFFFFu, fallback->level);
    EXPECT_TRUE(fallback->levelDescriptions.empty());
    // Nothing registered, nothing announced.
    EXPECT_EQ(nullptr, vexlor_get_component_by_name("mem"));
    EXPECT_TRUE(CRecorder::instance().calls("component").empty());
}

// An entry has exactly two fields (empty items and fields do not count); numbers saturate at 32
// bits and are kept as unsigned; nothing is trimmed.
TEST_F(CVexlorComponentsTest, ParsesLevelDescriptionStrings)
{
    const std::vector<std::pair<std::string, Entries>> examples{
        {",,4==io,", {{4, "io"}}},   {"7,8=a=b,9=kept", {{9, "kept"}}}, {"1=a,1=b", {{1, "a"}, {1, "b"}}},
        {" 6 = disk", {{6, " disk"}}}, {"-1=all", {{4294967295u, "all"}}}, {"-99999999999=low", {{2147483648u, "low"}}},
        {"99999999999=big", {{2147483647u, "big"}}},
    };
    for (std::size_t i = 0; i < examples.size(); ++i) {
        const std::string name = "c" + std::to_string(i);
        vexlor_create_component(name.c_str(), VX_INFO, examples[i].first.c_str());
        EXPECT_EQ(examples[i].second, descriptions(name)) << "«" << examples[i].first << "»";
    }
}

}  // namespace
