// The journal target loaded through a configuration file, writing to a journald stand-in that
// parses the native protocol: every field, refusal without a journal, and counted losses.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include "CJournalStandIn.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "targets/CLogTargetContainer.h"

namespace {

class CJournalTargetTest : public ::testing::Test {
protected:
    // The test's body runs with a private /run, where the stand-in can take the journal's place.
    void withPrivateRun(const std::function<void()>& body)
    {
        std::string why;
        if (!CJournalStandIn::runWithPrivateRun(body, why)) {
            FAIL() << "no private mount namespace: " << why;
        }
    }

    void read(const std::string& content)
    {
        m_dir.write("vexlor.cfg", content);
        m_container.onCfgUpdate();
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    CLogTargetContainer m_container{m_dir.path(), false, nullptr};
};

TEST_F(CJournalTargetTest, SendsEachRecordWithItsFields)
{
    withPrivateRun([this] {
        CJournalStandIn journal;
        read("target = " VEXLOR_TEST_TARGET_JOURNAL ", facility=local3, levels=emerg-notice\n");
        m_container.log(42, 2, 4102444800LL, 7, VX_ERR, "main", "net", "poll", "link down\nsecond line");
        m_container.log(42, 0, 4102444800LL, 8, VX_DEBUG, "main", "net", "", "filtered out by levels=");
        m_container.setAppname("player");
        m_container.log(42, 0, 4102444800LL, 9, VX_NOTICE, "worker", "storage", "", "named");
        const std::string tid = std::to_string(syscall(SYS_gettid));
        const std::vector<CJournalEntry> expected = {
            {{"MESSAGE", "link down\nsecond line"},
             {"PRIORITY", "3"},
             {"SYSLOG_IDENTIFIER", program_invocation_short_name},
             {"SYSLOG_FACILITY", "19"},
             {"TID", tid},
             {"CODE_FUNC", "poll"},
             {"VEXLOR_COMPONENT", "net"},
             {"VEXLOR_THREAD", "main"},
             {"VEXLOR_DEPTH", "2"}},
            {{"MESSAGE", "named"},
             {"PRIORITY", "5"},
             {"SYSLOG_IDENTIFIER", "player"},
             {"SYSLOG_FACILITY", "19"},
             {"TID", tid},
             {"VEXLOR_COMPONENT", "storage"},
             {"VEXLOR_THREAD", "worker"},
             {"VEXLOR_DEPTH", "0"}},
        };
        // Whole entries compared: no CODE_FILE or CODE_LINE of the target's own source either.
        EXPECT_EQ(expected, journal.receive(2));
    });
}

TEST_F(CJournalTargetTest, RefusesCreationWithoutJournalAndCountsWhatItRefuses)
{
    withPrivateRun([this] {
        read("target = " VEXLOR_TEST_TARGET_JOURNAL "\n");
        EXPECT_EQ(1, m_syslog.count("journal target: no journal at /run/systemd/journal/socket - No such file or "
                                    "directory (is systemd-journald running?)",
                                    LOG_ERR));

        CJournalStandIn journal;
        read("target = " VEXLOR_TEST_TARGET_JOURNAL ", name=j\n");
        journal.shutDown();
        for (int i = 0; i < 3; ++i) {
            m_container.log(42, 0, 4102444800LL, 0, VX_INFO, "main", "net", "", "lost");
        }
        journal.open();
        m_container.log(42, 0, 4102444800LL, 0, VX_INFO, "main", "net", "", "back");
        ASSERT_EQ(1u, journal.receive(1).size());
        EXPECT_EQ(1, m_syslog.count("journal target j: the journal takes no records - Connection refused; they are "
                                    "lost until it does",
                                    LOG_ERR));
        EXPECT_EQ(1, m_syslog.count("journal target j: the journal takes records again; 3 records lost", LOG_NOTICE));
    });
}

}  // namespace
