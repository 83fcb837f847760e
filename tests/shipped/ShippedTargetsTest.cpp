// The target plug-ins we ship, loaded through a configuration file like any other: the file
// target's lines and the syslog target's messages, priorities and facility.
#include <gtest/gtest.h>
#include <memory>
#include <syslog.h>

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

    void deliver(vexlor_level* level, const std::string& function, const std::string& message)
    {
        m_container.log(42, 1, 4102444800LL, 7, level, "main", "net", function, message);
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    CLogTargetContainer m_container{m_dir.path(), false, nullptr};
};

TEST_F(ShippedTargetsTest, FileTargetAppendsOneTabSeparatedLinePerRecord)
{
    const std::string out = m_dir.file("records.tsv");
    read("target = " VEXLOR_TEST_FILE_TARGET ", path=" + out + "\n");
    deliver(VX_WARN, "poll", "link\tdown\nagain");
    deliver(VX_ALL, "", "all");
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
    deliver(VX_ERR, "poll", "link down");
    deliver(VX_ENTERLEAVE, "", "leaving");
    const auto messages = m_syslog.messages();
    ASSERT_EQ(2u, messages.size());
    EXPECT_EQ("[net/main] poll: link down", messages[0].text);
    EXPECT_EQ(LOG_ERR, messages[0].priority);
    EXPECT_EQ(LOG_LOCAL3, messages[0].facility);
    EXPECT_EQ("[net/main] leaving", messages[1].text);
    EXPECT_EQ(LOG_DEBUG, messages[1].priority);

    read("");
    read("target = " VEXLOR_TEST_SYSLOG_TARGET ", facility=kernel\n");
    EXPECT_TRUE(m_syslog.contains("syslog target: unknown facility \"kernel\" (user, daemon, local0 to local7)", LOG_ERR));
    EXPECT_FALSE(m_container.hasSyslogTarget());
}

}  // namespace
