// The component registry of the main instance: creation and lookup, masks set by the
// configuration sink and by name, level descriptions, announcements to the targets, and the
// fallback component handed out when a component cannot be allocated.
#include <atomic>
#include <gtest/gtest.h>
#include <new>
#include <sstream>
#include <string>
#include <syslog.h>
#include <utility>
#include <vector>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "core/CVexlor.h"
#include "testPaths.h"

namespace {

// While set, the nothrow operator new below fails, as it does when memory runs out.
std::atomic<bool> failNothrowNew{false};

}  // namespace

// Replaces the standard one for the whole process, the library included.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    if (failNothrowNew) {
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (...) {
        return nullptr;
    }
}

namespace {

using Entries = std::vector<std::pair<unsigned int, std::string>>;
using Announcements = std::vector<std::pair<std::string, unsigned int>>;  // name, mask at the time

class CVexlorComponentsTest : public ::testing::Test {
protected:
    void SetUp() override { m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec")); }

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

    static std::vector<std::string> names()
    {
        std::vector<std::string> result;
        vexlor_get_component_names(result);
        return result;
    }

    static Entries descriptions(const std::string& name, Entries entries = {})
    {
        vexlor_get_level_descriptions(name, entries);
        return entries;
    }

    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};

TEST_F(CVexlorComponentsTest, CreatesEachNameOnceAndAnnouncesIt)
{
    vexlor_component* net = vexlor_create_component("net", VX_INFO, "0=off,1=on");
    EXPECT_EQ("net", vexlor_get_name_by_component(net));
    EXPECT_EQ(0x40u, net->level);
    // Asked for again: same record, mask kept, descriptions appended.
    EXPECT_EQ(net, vexlor_create_component("net", VX_DEBUG, "2=more"));
    EXPECT_EQ(0x40u, vexlor_get_component_level("net"));
    EXPECT_EQ((Entries{{9, "kept"}, {0, "off"}, {1, "on"}, {2, "more"}}), descriptions("net", {{9, "kept"}}));
    EXPECT_EQ(Entries{}, descriptions("unknown"));

    EXPECT_EQ(0u, vexlor_create_component("b", nullptr, "")->level);
    vexlor_component* empty = vexlor_create_component("", VX_ERR, "");
    EXPECT_EQ(empty, vexlor_get_component_by_name(""));
    vexlor_create_component("a", VX_ERR, "");
    vexlor_create_component("B", VX_ERR, "");
    EXPECT_EQ((Announcements{{"net", 0x40}, {"net", 0x40}, {"b", 0}, {"", 0x8}, {"a", 0x8}, {"B", 0x8}}),
              takeAnnouncements());

    EXPECT_EQ(net, vexlor_get_component_by_name("net"));
    EXPECT_EQ(nullptr, vexlor_get_component_by_name("nett"));
    EXPECT_EQ(0u, vexlor_get_component_level("nett"));
    std::vector<std::string> listed{"kept"};
    vexlor_get_component_names(listed);
    EXPECT_EQ((std::vector<std::string>{"kept", "", "B", "a", "b", "net"}), listed);

    // Setting a mask by name neither creates nor announces.
    vexlor_set_component_level("net", 0x81);
    vexlor_set_component_level("nett", 0x81);
    EXPECT_EQ(0x81u, net->level);
    EXPECT_EQ(nullptr, vexlor_get_component_by_name("nett"));
    EXPECT_TRUE(takeAnnouncements().empty());
}

TEST_F(CVexlorComponentsTest, ConfigurationSinkSetsMasksFromBitStrings)
{
    CVexlor* core = CVexlor::getInstance();
    takeAnnouncements();
    EXPECT_EQ(0, core->updateComponentLevel("disk", "101"));
    EXPECT_EQ(1, m_syslog.count("Creating new component disk (level=0x5)", LOG_DEBUG));
    EXPECT_EQ((Announcements{{"disk", 0x5}}), takeAnnouncements());
    // Created by the configuration first, described by the application later.
    vexlor_component* disk = vexlor_create_component("disk", VX_ERR, "0=off");
    EXPECT_EQ(0x5u, disk->level);
    EXPECT_EQ((Entries{{0, "off"}}), descriptions("disk"));
    takeAnnouncements();

    const std::pair<std::string, unsigned int> updates[] = {
        {"", 0x0}, {"1x1", 0x5}, {std::string(33, '1'), 0xFFFFFFFF}, {"1" + std::string(32, '0'), 0x0},
    };
    std::string previous = "0x5";
    for (const auto& [bits, mask] : updates) {
        m_syslog.clear();
        EXPECT_EQ(0, core->updateComponentLevel("disk", bits));
        EXPECT_EQ(mask, disk->level) << bits;
        std::ostringstream next;
        next << "0x" << std::hex << mask;
        EXPECT_EQ(1, m_syslog.count("Updating level for existing component disk (old level: " + previous +
                                    ", new level: " + next.str(), LOG_DEBUG)) << bits;
        EXPECT_EQ((Announcements{{"disk", mask}}), takeAnnouncements());
        previous = next.str();
    }
    EXPECT_EQ(std::vector<std::string>{"disk"}, names());
}

TEST_F(CVexlorComponentsTest, HandsOutTheFallbackComponentWhenAllocationFails)
{
    vexlor_create_component("kept", VX_INFO, "");
    takeAnnouncements();
    failNothrowNew = true;
    vexlor_component* fallback = vexlor_create_component("mem", VX_INFO, "0=off");
    failNothrowNew = false;
    ASSERT_EQ(&CVexlor::ms_OOMFallbackComp, fallback);
    EXPECT_EQ("OOM-Ohno!", fallback->name);
    EXPECT_EQ(0xFFFFFFFFu, fallback->level);
    EXPECT_TRUE(fallback->levelDescriptions.empty());
    EXPECT_EQ(std::vector<std::string>{"kept"}, names());
    EXPECT_TRUE(takeAnnouncements().empty());

    // It logs like any other component, at every level.
    vexlor(fallback, VX_ENTERLEAVE, "still logged");
    const auto logs = CRecorder::instance().calls("log", "rec");
    ASSERT_EQ(1u, logs.size());
    EXPECT_EQ("OOM-Ohno!", logs[0].componentName);
    // Once memory is back the name is created normally.
    EXPECT_NE(fallback, vexlor_create_component("mem", VX_INFO, ""));
    EXPECT_EQ((std::vector<std::string>{"kept", "mem"}), names());
}

}  // namespace
