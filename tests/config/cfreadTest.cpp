// The key=value reader in table and callback mode: line syntax, a broken line with its line
// number, the int_value rule and the growth of the slot table.
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>
#include <utility>
#include <vector>
#include <vexlor/cfread.h>

#include "CSyslogCapture.h"
#include "CTempDir.h"

namespace {

using Entries = std::vector<std::pair<std::string, std::string>>;

struct CCollected {
    Entries entries;
    int stopAt = 0;  // the callback asks to stop at this entry (1-based); 0 never
};

int collect(const char* key, const char* value, void* user)
{
    auto* collected = static_cast<CCollected*>(user);
    collected->entries.emplace_back(key, value);
    return static_cast<int>(collected->entries.size()) == collected->stopAt ? 1 : 0;
}

class CfreadTest : public ::testing::Test {
protected:
    Entries parse(const std::string& content, bool callOnEmpty = false, int stopAt = 0)
    {
        CCollected collected{{}, stopAt};
        m_rc = cfread_parse_with_callback(m_dir.write("f.cfg", content).c_str(), &collect, &collected, callOnEmpty);
        return collected.entries;
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    int m_rc = 1;
};

TEST_F(CfreadTest, BothModesReadTheSameEntries)
{
    const std::string content = "my key = value\na=b=c\n  #x=1\n#comment=9\ncrlf=v\r\nnovalue\n=value\n\n# no line feed";
    const Entries entries = {{"mykey", "value"}, {"a", "b=c"}, {"#x", "1"}, {"crlf", "v"}};
    EXPECT_EQ(entries, parse(content));
    EXPECT_EQ(0, m_rc);
    Entries withEmpty = entries;
    withEmpty.insert(withEmpty.end(), {{"novalue", ""}, {"", "value"}, {"", ""}});
    EXPECT_EQ(withEmpty, parse(content, true));
    // A callback that asks to stop ends a successful read.
    EXPECT_EQ(Entries(1, entries[0]), parse(content, false, 1));
    EXPECT_EQ(0, m_rc);

    cfread_handle* handle = cfread_open(m_dir.file("f.cfg").c_str());
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(static_cast<int>(entries.size()), handle->count);
    for (const auto& [key, value] : entries) {
        const cfread_entry* entry = cfread_find_entry(handle, key.c_str());
        EXPECT_EQ(value, entry != nullptr ? entry->value : "(none)") << key;
    }
    cfread_close(handle);
    EXPECT_TRUE(m_syslog.messages().empty());
}

// Callback mode has handed over the lines before the broken one; both modes name its line.
TEST_F(CfreadTest, RejectsBrokenLinesAndMissingFiles)
{
    EXPECT_EQ((Entries{{"a", "1"}}), parse("a=1\nk=" + std::string(256, 'v') + "\n"));
    EXPECT_EQ(-1, m_rc);
    EXPECT_EQ(nullptr, cfread_open(m_dir.file("f.cfg").c_str()));
    EXPECT_EQ(2, m_syslog.count("cfread: max. value length exceeded in " + m_dir.file("f.cfg") + " at line 2", LOG_ERR));
    EXPECT_EQ((Entries{{"a", "1"}}), parse("a=1\nk=v"));
    EXPECT_EQ(-1, m_rc);

    CCollected collected;
    for (const char* name : {static_cast<const char*>(nullptr), "/nonexistent/f.cfg"}) {
        EXPECT_EQ(-1, cfread_parse_with_callback(name, &collect, &collected, 0));
        EXPECT_EQ(nullptr, cfread_open(name));
    }
}

// A later line replaces the earlier one in its slot; the table grows past its first 64 slots.
TEST_F(CfreadTest, SlotTableReusesSlotsGrowsAndReadsIntValues)
{
    cfread_handle* handle = cfread_open(m_dir.write("t.cfg", "a=1\nb=2\na=3\n").c_str());
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(2, handle->count);
    EXPECT_STREQ("3", cfread_find_entry(handle, "a")->value);
    EXPECT_EQ(nullptr, cfread_set_entry(handle, "", "x"));
    const std::pair<const char*, int> cases[] = {{"-7", -7}, {"true", 1}, {"false", 0}, {"5 ", -1}, {"2147483647", -1}};
    for (const auto& [value, expected] : cases) {
        EXPECT_EQ(expected, cfread_set_entry(handle, "k", value)->int_value) << value;
    }
    for (int i = 3; i <= 64; ++i) {
        cfread_set_entry(handle, ("k" + std::to_string(i)).c_str(), std::to_string(i).c_str());
    }
    for (int i = 3; i <= 64; ++i) {
        ASSERT_EQ(i, cfread_find_entry(handle, ("k" + std::to_string(i)).c_str())->int_value);
    }
    EXPECT_EQ(65, handle->count);
    cfread_close(handle);
}

}  // namespace
