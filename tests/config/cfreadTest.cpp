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

// Callback mode on `path`: the entries handed over and the result. The callback asks to stop at
// entry `stopAt` (1-based; 0 never), which the result takes the place of afterwards.
std::pair<Entries, int> parse(const std::string& path, bool callOnEmpty = false, int stopAt = 0)
{
    std::pair<Entries, int> collected{{}, stopAt};
    const auto collect = [](const char* key, const char* value, void* user) {
        auto& [entries, stop] = *static_cast<std::pair<Entries, int>*>(user);
        entries.emplace_back(key, value);
        return static_cast<int>(entries.size()) == stop ? 1 : 0;
    };
    collected.second = cfread_parse_with_callback(path.c_str(), collect, &collected, callOnEmpty);
    return collected;
}

// Table mode keeps what callback mode hands over, without the empty entries; a callback that asks
// to stop ends a successful read. A broken line fails both modes, callback mode after handing
// over the lines before it.
TEST(CfreadTest, BothModesReadTheSameEntriesRejectTheSameLinesAndTheTableGrowsAndReadsIntValues)
{
    const CTempDir dir;
    const CSyslogCapture syslog;
    const std::string file =
        dir.write("f.cfg", "my key = value\na=b=c\n  #x=1\n#c=9\ncrlf=v\r\nnovalue\n=value\n\n# end");
    const Entries entries = {{"mykey", "value"}, {"a", "b=c"}, {"#x", "1"}, {"crlf", "v"}};
    EXPECT_EQ(std::make_pair(entries, 0), parse(file));
    Entries withEmpty = entries;
    withEmpty.insert(withEmpty.end(), {{"novalue", ""}, {"", "value"}, {"", ""}});
    EXPECT_EQ(std::make_pair(withEmpty, 0), parse(file, true));
    EXPECT_EQ(std::make_pair(Entries(1, entries[0]), 0), parse(file, false, 1));
    cfread_handle* handle = cfread_open(file.c_str());
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(static_cast<int>(entries.size()), handle->count);
    for (const auto& [key, value] : entries) {
        const cfread_entry* entry = cfread_find_entry(handle, key.c_str());
        EXPECT_EQ(value, entry != nullptr ? entry->value : "(none)") << key;
    }
    cfread_close(handle);
    EXPECT_TRUE(syslog.messages().empty());

    for (const std::string& broken : {"a=1\nk=" + std::string(256, 'v') + "\n", std::string("a=1\nk=v")}) {
        dir.write("f.cfg", broken);
        EXPECT_EQ(std::make_pair(Entries{{"a", "1"}}, -1), parse(file));
        EXPECT_EQ(nullptr, cfread_open(file.c_str()));
    }
    EXPECT_EQ(2, syslog.count("cfread: max. value length exceeded in " + file + " at line 2", LOG_ERR));
    EXPECT_EQ(-1, parse("/nonexistent/f.cfg").second);
    EXPECT_EQ(nullptr, cfread_open(nullptr));

    // A later line replaces the earlier one in its slot; the table grows past its first 64 slots.
    handle = cfread_open(dir.write("t.cfg", "a=1\nb=2\na=3\n").c_str());
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
