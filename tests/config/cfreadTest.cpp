// The key=value reader in table and callback mode: line syntax, limits with their messages, the
// int_value rule and the slot table.
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
    // Callback mode on a file with `content`; the result goes to m_rc.
    Entries parse(const std::string& content, bool callOnEmpty = false, int stopAt = 0)
    {
        CCollected collected{{}, stopAt};
        m_rc = cfread_parse_with_callback(m_dir.write("f.cfg", content).c_str(), &collect, &collected, callOnEmpty);
        return collected.entries;
    }

    // Both modes reject the file with "cfread: <message> in <file> at line <line>"; callback mode
    // has handed over `before` by then.
    void expectRejected(const std::string& content, const std::string& message, int line, const Entries& before = {})
    {
        m_syslog.clear();
        EXPECT_EQ(before, parse(content));
        EXPECT_EQ(-1, m_rc);
        EXPECT_EQ(nullptr, cfread_open(m_dir.file("f.cfg").c_str()));
        const std::string text = "cfread: " + message + " in " + m_dir.file("f.cfg") + " at line " + std::to_string(line);
        EXPECT_EQ(2, m_syslog.count(text, LOG_ERR)) << text;
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    int m_rc = 1;
};

TEST_F(CfreadTest, SplitsLinesByTheFileSyntax)
{
    const std::string content = "my key = value\npad=  a b  \na=b=c\neq==x\ntab\t=\tv\n  #x=1\nnote=1 # note\n#comment=9\n"
                                "crlf=v\r\ncr=v\rrest\n"
                                "utf=\xc3\xa4" "b\xe2\x82\xac c\nnovalue\n=value\n\n# a last comment needs no line feed";
    const Entries entries = {{"mykey", "value"}, {"pad", "a b  "}, {"a", "b=c"},        {"eq", "=x"}, {"tab\t", "\tv"},
                             {"#x", "1"},        {"note", "1 # note"}, {"crlf", "v"}, {"cr", "v"},  {"utf", "b c"}};
    EXPECT_EQ(entries, parse(content));
    EXPECT_EQ(0, m_rc);
    Entries withEmpty = entries;
    withEmpty.insert(withEmpty.end(), {{"novalue", ""}, {"", "value"}, {"", ""}});
    EXPECT_EQ(withEmpty, parse(content, true));
    // A callback that asks to stop ends a successful read.
    EXPECT_EQ(Entries(1, entries[0]), parse(content, false, 1));
    EXPECT_EQ(0, m_rc);

    // Table mode keeps the same entries, without the empty ones.
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

TEST_F(CfreadTest, RejectsUnreadableFilesAndBrokenLinesWithTheLineNumber)
{
    // Dropped bytes do not count: top-bit bytes at a full key or value, spaces in a long line.
    const std::string key(255, 'k');
    const std::string value(255, 'v');
    EXPECT_EQ((Entries{{key, "1"}, {"v", value}, {"p", "v"}}),
              parse(key + "\xff=1\nv=" + value + "\xc3\xa4\n" + std::string(1019, ' ') + "p=v\n"));
    EXPECT_EQ(0, m_rc);

    expectRejected("#c\n\n" + key + " =v\n", "max. key length exceeded", 3);
    expectRejected("a=1\nk=" + value + "v\n", "max. value length exceeded", 2, {{"a", "1"}});
    expectRejected(std::string(1020, ' ') + "k=v\n", "non-terminated entry", 1);
    expectRejected("a=1\nk=v", "non-terminated entry", 2, {{"a", "1"}});
    expectRejected(std::string("a=1\nk=\0v\n", 9), "non-terminated entry", 2, {{"a", "1"}});

    const std::string missing = m_dir.file("missing.cfg");
    for (const char* name : {static_cast<const char*>(nullptr), "", missing.c_str()}) {
        CCollected collected;
        EXPECT_EQ(-1, cfread_parse_with_callback(name, &collect, &collected, 0));
        EXPECT_EQ(nullptr, cfread_open(name));
    }
    EXPECT_EQ(4, m_syslog.count("cfread: no config file given", LOG_ERR));
    EXPECT_EQ(2, m_syslog.count("cfread: unable to open " + missing, LOG_ERR));
}

TEST_F(CfreadTest, SlotTableReusesSlotsGrowsBy64AndReadsIntValues)
{
    // Within one file a later line replaces the earlier one in its slot.
    cfread_handle* handle = cfread_open(m_dir.write("t.cfg", "a=1\nb=2\na=3\n").c_str());
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(2, handle->count);
    const cfread_entry* a = cfread_find_entry(handle, "a");
    ASSERT_EQ(handle->entries[0], a);
    EXPECT_STREQ("3", a->value);
    // No entry has a null or empty key.
    EXPECT_TRUE(cfread_set_entry(handle, nullptr, "x") == nullptr && cfread_set_entry(handle, "", "x") == nullptr &&
                cfread_find_entry(handle, nullptr) == nullptr && cfread_find_entry(handle, "") == nullptr);

    const std::pair<const char*, int> cases[] = {
        {"42", 42},    {"-7", -7},    {"+7", 7},  {"+", 0},           {"007", 7},
        {"5 ", -1},    {"0x10", -1},  {"true", 1}, {"True", -1},      {"false", 0},
        {"", -1},      {nullptr, -1}, {"2147483646", 2147483646},     {"2147483647", -1},
        {"-2147483648", -1},          {"99999999999", -1}};
    for (const auto& [value, expected] : cases) {
        const cfread_entry* entry = cfread_set_entry(handle, "k", value);
        ASSERT_NE(nullptr, entry);
        EXPECT_EQ(expected, entry->int_value) << (value != nullptr ? value : "(null)");
    }

    for (int i = 3; i < 64; ++i) {
        ASSERT_EQ(i, cfread_set_entry(handle, ("k" + std::to_string(i)).c_str(), "v")->index);
    }
    EXPECT_EQ(64, handle->capacity);
    EXPECT_EQ(64, cfread_set_entry(handle, "k64", "v")->index);
    EXPECT_EQ(128, handle->capacity);
    EXPECT_EQ(nullptr, handle->entries[127]);
    cfread_close(handle);
    cfread_close(nullptr);
}

}  // namespace
