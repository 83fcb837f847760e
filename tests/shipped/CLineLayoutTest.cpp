// The line layout the shipped targets share: tokens, clocks, level names, escaping, long lines.
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

#include "CLineLayout.h"

namespace {

constexpr long long Y2100 = 4102444800LL;  // 2100-01-01 00:00:00 UTC: past 2038 on purpose

struct CFields {
    int depth = 1;
    long long seconds = Y2100;
    const vexlor_level* level = nullptr;
    std::string thread = "main", component = "net", function = "poll", message = "link down", appname = "player";
};

std::string formatted(CLineLayout& layout, const CFields& fields)
{
    CLineBuffer line;
    layout.format(line,
                  CLogRecord{4242, fields.depth, fields.seconds, 7, fields.level ? fields.level : VX_WARN,
                             fields.thread, fields.component, fields.function, fields.message, fields.appname});
    return std::string(line.data(), line.size());
}

std::string formatted(const std::string& pattern, const CFields& fields = CFields())
{
    CLineLayout layout(pattern, true);
    return formatted(layout, fields);
}

TEST(CLineLayoutTest, FillsEveryTokenFromTheRecordEscapingControlBytesAtAnyLength)
{
    EXPECT_EQ("2100-01-01 00:00:00.000007 player[4242] WARN net [main]   poll: link down",
              formatted(CLineLayout::DEFAULT_PATTERN));
    EXPECT_EQ("4|main|net|poll|poll: |  |link down|player|100%", formatted("%L|%T|%c|%f|%F|%i|%m|%a|100%%"));

    // Indentation stops at 32 levels; the program's name stands until the application names itself.
    const CFields outside{1000, Y2100, nullptr, "main", "net", "", "link down", ""};
    EXPECT_EQ("[]" + std::string(64, ' ') + program_invocation_short_name + ": link down",
              formatted("[%f]%i%a: %F%m", outside));

    vexlor_level created{12, 1u << 12};
    std::string names;
    for (const vexlor_level* level : {VX_EMERG, VX_ALERT, VX_CRIT, VX_ERR, VX_WARN, VX_NOTICE, VX_INFO, VX_DEBUG,
                                      VX_ENTERLEAVE, VX_ALL, &created}) {
        names += formatted("%l ", CFields{1, Y2100, level});
    }
    EXPECT_EQ("EMERG ALERT CRIT ERR WARN NOTICE INFO DEBUG TRACE ALL 12 ", names);

    // A field can neither end the line nor forge another one; everything else is left as it came.
    CFields fields{
        1, Y2100, nullptr, "t\n", "c\r", "f\t", std::string("a\0b\x1f\x7f", 5) + "\\n \xc3\xbc \xff\xc3(", "p\x1b[31m"};
    EXPECT_EQ("t\\n|c\\r|f\\t|a\\x00b\\x1f\\x7f\\n \xc3\xbc \xff\xc3(|p\\x1b[31m", formatted("%T|%c|%f|%m|%a", fields));

    // Lines longer than the layout's inline buffer: 12000 bytes once escaped.
    fields.thread = std::string(3000, 't');
    fields.message = std::string(3000, '\x01');
    std::string escaped;
    for (int i = 0; i < 3000; ++i) {
        escaped += "\\x01";
    }
    EXPECT_EQ("<" + fields.thread + ">" + escaped, formatted("<%T>%m", fields));
}

// Each layout keeps the text of the last second: the next second and a step back must be right.
TEST(CLineLayoutTest, ShowsLocalOrUniversalTimeAndFollowsTheSecond)
{
    setenv("TZ", "XST-2", 1);  // two hours east of UTC, no daylight saving
    tzset();
    CLineLayout local("%d %t", false);
    CLineLayout utc("%d %t", true);
    CFields fields;
    EXPECT_EQ("2100-01-01 02:00:00.000007", formatted(local, fields));
    fields.seconds = Y2100 + 61;
    EXPECT_EQ("2100-01-01 00:01:01.000007", formatted(utc, fields));
    fields.seconds = Y2100 - 1;
    EXPECT_EQ("2099-12-31 23:59:59.000007", formatted(utc, fields));
    EXPECT_EQ("2100-01-01 01:59:59.000007", formatted(local, fields));
}

}  // namespace
