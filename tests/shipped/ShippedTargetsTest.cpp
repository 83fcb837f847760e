// The target plug-ins we ship, loaded through a configuration file like any other: the file
// target's lines and the syslog target's messages, priorities and facility.
#include <gtest/gtest.h>
#include <syslog.h>
#include <tuple>

#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "targets/CLogTargetContainer.h"

namespace {

class ShippedTargetsTest : public ::testing::Test {
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

TEST_F(ShippedTargetsTest, FileTargetAppendsOneTabSeparatedLinePerRecord)
{
    const std::string out = m_dir.file("records.tsv");
    read("target = " VEXLOR_TEST_FILE_TARGET ", path=" + out + "\n");
    m_container.log(42, 1, 4102444800LL, 7, VX_WARN, "main", "net", "poll", "link\tdown\nagain");
    m_container.log(42, 1, 4102444800LL, 7, VX_ALL, "main", "net", "", "all");
    EXPECT_EQ("4102444800.000007\t42\t4\tmain\tnet\tpoll\t1\tlink down again\n"
              "4102444800.000007\t42\t32\tmain\tnet\t\t1\tall\n",
              readFile(out));

    // Without a file to write, there is no target, and the operator is told why.
    read("");
    read("target = " VEXLOR_TEST_FILE_TARGET "\n");
    EXPECT_TRUE(m_syslog.contains("file target: unable to open \"\" - no path= parameter given", LOG_ERR));
    EXPECT_TRUE(m_syslog.contains("logtarget-container: Unable to create LogTarget from lib \"" VEXLOR_TEST_FILE_TARGET "\"",
                                  LOG_ERR));
}

TEST_F(ShippedTargetsTest, SyslogTargetWritesRecordsAtTheirPriorityAndTakesOverSyslog)
{
    read("target = " VEXLOR_TEST_SYSLOG_TARGET ", facility=local3, function=1\n");
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
    read("target = " VEXLOR_TEST_SYSLOG_TARGET ", facility=kernel\n");
    EXPECT_TRUE(m_syslog.contains("syslog target: unknown facility \"kernel\" (user, daemon, local0 to local7)", LOG_ERR));
    EXPECT_FALSE(m_container.hasSyslogTarget());
}

}  // namespace
