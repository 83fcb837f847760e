// The syslog target: priorities, facility, pattern, levels, the syslog flag, and that the
// library's syslog identity is left alone.
#include <syslog.h>
#include <tuple>

#include "CTargetFixture.h"

namespace {

using CSyslogTargetTest = CTargetFixture;

TEST_F(CSyslogTargetTest, WritesRecordsAtTheirPriorityAndFacilityAndTakesOverSyslog)
{
    vexlor_level created{12, 1u << 12};
    using CSeen = std::vector<std::tuple<int, int, std::string>>;  // priority, facility, text
    const std::pair<std::string, CSeen> cases[] = {
        {", facility=local3, pattern=[%c/%T] %F%m, levels=emerg-err trace 12",
         {{LOG_ERR, LOG_LOCAL3, "[net/main] poll: link\\ndown"},
          {LOG_DEBUG, LOG_LOCAL3, "[net/main] leaving"},
          {LOG_DEBUG, LOG_LOCAL3, "[net/main] created level"}}},
        // The library's own facility, as its openlog set it; every level.
        {"",
         {{LOG_ERR, 0, "[net/main] link\\ndown"},
          {LOG_WARNING, 0, "[net/main] not filtered"},
          {LOG_DEBUG, 0, "[net/main] leaving"},
          {LOG_DEBUG, 0, "[net/main] created level"}}},
    };
    for (const auto& [parameters, expected] : cases) {
        read("target = " VEXLOR_TEST_TARGET_SYSLOG + parameters + "\n");
        EXPECT_TRUE(m_container.hasSyslogTarget());
        m_syslog.clear();
        log(VX_ERR, "link\ndown", "poll");
        log(VX_WARN, parameters.empty() ? "not filtered" : "filtered out by levels=", "poll");
        log(VX_ENTERLEAVE, "leaving");
        log(&created, "created level");
        CSeen seen;
        for (const CSyslogMessage& message : m_syslog.messages()) {
            seen.emplace_back(message.priority, message.facility, message.text);
        }
        EXPECT_EQ(expected, seen) << parameters;
        // The library opened syslog under the application's name; the target never reopens it.
        EXPECT_TRUE(m_syslog.openlogCalls().empty());
        read("");
    }
}

}  // namespace
