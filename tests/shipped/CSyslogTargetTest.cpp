// The syslog target loaded through a configuration file: priorities, facility, pattern, levels,
// the syslog flag, and that the library's syslog identity is left alone.
#include <gtest/gtest.h>
#include <syslog.h>
#include <tuple>

#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "targets/CLogTargetContainer.h"

namespace {

class CSyslogTargetTest : public ::testing::Test {
protected:
    void read(const std::string& content)
    {
        m_dir.write("vexlor.cfg", content);
        m_container.onCfgUpdate();
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    CLogTargetContainer m_container{m_dir.path(), false, nullptr};
};

TEST_F(CSyslogTargetTest, WritesRecordsAtTheirPriorityAndTakesOverSyslog)
{
    read("target = " VEXLOR_TEST_TARGET_SYSLOG ", facility=local3, pattern=[%c/%T] %F%m, levels=emerg-err trace 12\n");
    EXPECT_TRUE(m_container.hasSyslogTarget());
    m_syslog.clear();
    vexlor_level created{12, 1u << 12};
    m_container.log(42, 1, 4102444800LL, 7, VX_ERR, "main", "net", "poll", "link\ndown");
    m_container.log(42, 1, 4102444800LL, 7, VX_WARN, "main", "net", "poll", "filtered out by levels=");
    m_container.log(42, 1, 4102444800LL, 7, VX_ENTERLEAVE, "main", "net", "", "leaving");
    m_container.log(42, 1, 4102444800LL, 7, &created, "main", "net", "", "created level");
    std::vector<std::tuple<int, int, std::string>> seen;  // priority, facility, text
    for (const CSyslogMessage& message : m_syslog.messages()) {
        seen.emplace_back(message.priority, message.facility, message.text);
    }
    EXPECT_EQ((decltype(seen){{LOG_ERR, LOG_LOCAL3, "[net/main] poll: link\\ndown"},
                              {LOG_DEBUG, LOG_LOCAL3, "[net/main] leaving"},
                              {LOG_DEBUG, LOG_LOCAL3, "[net/main] created level"}}),
              seen);
    // The library opened syslog under the application's name; the target never reopens it.
    EXPECT_TRUE(m_syslog.openlogCalls().empty());
}

TEST_F(CSyslogTargetTest, KeepsTheLibrarysFacilityByDefaultAndRefusesUnknownOnes)
{
    read("target = " VEXLOR_TEST_TARGET_SYSLOG "\n");
    m_syslog.clear();
    m_container.log(42, 0, 4102444800LL, 7, VX_NOTICE, "main", "net", "poll", "up");
    ASSERT_EQ(1u, m_syslog.messages().size());
    EXPECT_EQ(0, m_syslog.messages()[0].facility);
    EXPECT_EQ("[net/main] up", m_syslog.messages()[0].text);

    read("");
    read("target = " VEXLOR_TEST_TARGET_SYSLOG ", facility=kernel\n");
    EXPECT_TRUE(m_syslog.contains(
        "syslog target \"syslog\": facility=kernel: unknown facility \"kernel\" (user, daemon, local0 to local7)", LOG_ERR));
}

}  // namespace
