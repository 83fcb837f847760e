// The file target loaded through a configuration file: its lines, and its refusal without a path.
#include <gtest/gtest.h>
#include <syslog.h>

#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "targets/CLogTargetContainer.h"

namespace {

class CFileTargetTest : public ::testing::Test {
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

TEST_F(CFileTargetTest, AppendsOneTabSeparatedLinePerRecord)
{
    const std::string out = m_dir.file("records.tsv");
    read("target = " VEXLOR_TEST_TARGET_FILE ", path=" + out + "\n");
    m_container.log(42, 1, 4102444800LL, 7, VX_WARN, "main", "net", "poll", "link\tdown\nagain");
    m_container.log(42, 1, 4102444800LL, 7, VX_ALL, "main", "net", "", "all");
    EXPECT_EQ("4102444800.000007\t42\t4\tmain\tnet\tpoll\t1\tlink down again\n"
              "4102444800.000007\t42\t32\tmain\tnet\t\t1\tall\n",
              readFile(out));

    // Without a file to write, there is no target, and the operator is told why.
    read("");
    read("target = " VEXLOR_TEST_TARGET_FILE "\n");
    EXPECT_TRUE(m_syslog.contains("file target: unable to open \"\" - no path= parameter given", LOG_ERR));
    EXPECT_TRUE(m_syslog.contains(
        "logtarget-container: Unable to create LogTarget from lib \"" VEXLOR_TEST_TARGET_FILE "\"", LOG_ERR));
}

}  // namespace
