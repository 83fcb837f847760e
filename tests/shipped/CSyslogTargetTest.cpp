// The syslog target loaded through a configuration file: priorities, facility, the syslog flag.
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
    read("target = " VEXLOR_TEST_TARGET_SYSLOG ", facility=local3, function=1\n");
    EXPECT_TRUE(m_container.hasSyslogTarget());
    m_syslog.clear();
    m_container.log(42, 1, 4102444800LL, 7, VX_ERR, "main", "net", "poll", "link down");
    m_container.log(42, 1, 4102444800LL, 7, VX_ENTERLEAVE, "main", "net", "", "leaving");
    std::vector<std::tuple<int, int, std::string>> seen;  // priority, facility, text
    for (const CSyslogMessage& message : m_syslog.messages()) {
        seen.emplace_back(message.priority, message.facility, message.text);
    }
    EXPECT_EQ((decltype(seen){{LOG_ERR, LOG_LOCAL3, "[net/main] poll: link down"},
                              {LOG_DEBUG, LOG_LOCAL3, "[net/main] leaving"}}),
              seen);

    read("");
    read("target = " VEXLOR_TEST_TARGET_SYSLOG ", facility=kernel\n");
    EXPECT_TRUE(m_syslog.contains("syslog target: unknown facility \"kernel\" (user, daemon, local0 to local7)", LOG_ERR));
    EXPECT_FALSE(m_container.hasSyslogTarget());
}

}  // namespace
