// Level description strings, as an application passes them to vexlor_create_component, and the
// entries that vexlor_get_level_descriptions then returns.
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include <vexlor/vexlor.h>

#include "CCompiledPaths.h"
#include "CSyslogCapture.h"

namespace {

using Entries = std::vector<std::pair<unsigned int, std::string>>;

struct CExample {
    const char* descriptions;
    Entries entries;
};

TEST(LevelDescriptionParserTest, ParsesDescriptionStrings)
{
    CCompiledPaths paths;
    CSyslogCapture syslog;
    const std::vector<CExample> examples{
        {"", {}},
        {",=,==,", {}},
        {"0=off,1=error,2=verbose", {{0, "off"}, {1, "error"}, {2, "verbose"}}},
        {",,3=trace,,", {{3, "trace"}}},
        {"4==io", {{4, "io"}}},
        {"=5=net=", {{5, "net"}}},
        {" 6 = disk", {{6, " disk"}}},
        {"7", {}},
        {"8=a=b", {}},
        {"7,8=a=b,9=kept", {{9, "kept"}}},
        {"x=name", {{0, "name"}}},
        {"0x10=hex", {{0, "hex"}}},
        {"12abc=mixed", {{12, "mixed"}}},
        {"+9=plus", {{9, "plus"}}},
        {"\t\n\v\f\r 10=spaces", {{10, "spaces"}}},
        {"-1=all", {{4294967295u, "all"}}},
        {"-2147483648=min", {{2147483648u, "min"}}},
        {"-99999999999=low", {{2147483648u, "low"}}},
        {"99999999999=big", {{2147483647u, "big"}}},
        {"2147483648=over", {{2147483647u, "over"}}},
        {"1=a,1=b", {{1, "a"}, {1, "b"}}},
        {"1=a;b", {{1, "a;b"}}},
        {"1=a;2=b", {}},
    };
    for (std::size_t i = 0; i < examples.size(); ++i) {
        const std::string name = "c" + std::to_string(i);
        vexlor_create_component(name.c_str(), VX_INFO, examples[i].descriptions);
        Entries entries;
        vexlor_get_level_descriptions(name, entries);
        EXPECT_EQ(examples[i].entries, entries) << "«" << examples[i].descriptions << "»";
    }
}

}  // namespace
