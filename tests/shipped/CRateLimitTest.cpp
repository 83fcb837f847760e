// rate= against a flood: one component logs 100,000 records at full speed from its own thread
// while another logs one a second. The quiet component loses nothing, the flood's records written
// plus the counts in its notices are exactly what it logged, and vexlorctl stats agrees.
#include <regex>
#include <thread>

#include "CFileTargetFixture.h"

namespace {

using CRateLimitTest = CFileTargetFixture;

TEST_F(CRateLimitTest, AFloodLeavesOtherComponentsAloneAndItsSuppressionsAddUp)
{
    constexpr int FLOOD = 100000;
    constexpr int QUIET = 4;
    read(CONTROL_LINE + fileTarget("app.log", "pattern=%c %m, rate=50/s, burst=20"));
    std::thread flood([&] {
        for (int i = 0; i < FLOOD; ++i) {
            m_container.log(42, 0, SECONDS, 7, VX_ERR, "worker", "flood", "", "again");
        }
    });
    for (int i = 0; i < QUIET; ++i) {
        m_container.log(42, 0, SECONDS, 7, VX_INFO, "main", "quiet", "", "tick " + std::to_string(i));
        std::this_thread::sleep_for(std::chrono::seconds(i + 1 < QUIET ? 1 : 0));
    }
    flood.join();
    const CCounters counted = statsOf("file");
    read("");

    const std::regex notice("flood (\\d+) records suppressed over \\d+\\.\\d s \\(rate=50/s, burst=20\\)");
    int quiet = 0, passed = 0, notices = 0;
    unsigned long long suppressed = 0;
    std::smatch match;
    for (const std::string& line : linesOf(logPath("app.log"))) {
        if (line == "quiet tick " + std::to_string(quiet)) {
            ++quiet;
        } else if (line == "flood again") {
            ++passed;
        } else if (std::regex_match(line, match, notice)) {
            ++notices;
            suppressed += std::stoull(match[1]);
        } else {
            ADD_FAILURE() << line;
        }
    }
    EXPECT_EQ(QUIET, quiet);
    EXPECT_EQ(FLOOD, passed + suppressed);
    EXPECT_GE(passed, 20);
    // At most one notice a second, the last one at unload.
    EXPECT_TRUE(notices >= 1 && notices <= QUIET + 2) << notices;
    EXPECT_EQ(counted.at("suppressed") + passed, FLOOD);
    EXPECT_LE(quiet + passed + notices - counted.at("written"), 1u);  // a notice left for the unload

    // What is suppressed after the last record that passed is told at unload; burst= is rate='s N.
    read(fileTarget("b.log", "pattern=%c %m, rate=1/m"));
    for (int i = 0; i < 3; ++i) {
        log(VX_INFO, "once");
    }
    read("");
    const std::string told = readFile(logPath("b.log"));
    EXPECT_TRUE(std::regex_match(
        told, std::regex("net once\nnet 2 records suppressed over 0\\.\\d s \\(rate=1/m, burst=1\\)\n")))
        << told;
}

}  // namespace
