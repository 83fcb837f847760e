// The journal target writing to a journald stand-in that parses the native protocol: refusal
// without a journal, every field, and counted losses.
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include "CJournalStandIn.h"
#include "CTargetFixture.h"

namespace {

using CJournalTargetTest = CTargetFixture;

TEST_F(CJournalTargetTest, SendsEveryFieldRefusesWithoutAJournalAndCountsWhatItLost)
{
    std::string why;
    // The body runs with a private /run, where the stand-in can take the journal's place.
    ASSERT_TRUE(CJournalStandIn::runWithPrivateRun([this] {
        read("target = " VEXLOR_TEST_TARGET_JOURNAL "\n");
        EXPECT_EQ(1, m_syslog.count("journal target: no journal at /run/systemd/journal/socket - No such file or "
                                    "directory (is systemd-journald running?)",
                                    LOG_ERR));

        CJournalStandIn journal;
        read("target = " VEXLOR_TEST_TARGET_JOURNAL ", name=j, facility=local3, levels=emerg-notice\n");
        m_container.log(42, 2, SECONDS, 7, VX_ERR, "main", "net", "poll", "link down\nsecond line");
        log(VX_DEBUG, "filtered out by levels=");
        m_container.setAppname("player");
        m_container.log(42, 0, SECONDS, 9, VX_NOTICE, "worker", "storage", "", "named");
        const std::string tid = std::to_string(syscall(SYS_gettid));
        const std::vector<CJournalEntry> expected = {
            {{"MESSAGE", "link down\nsecond line"}, {"PRIORITY", "3"}, {"SYSLOG_IDENTIFIER", program_invocation_short_name},
             {"SYSLOG_FACILITY", "19"}, {"TID", tid}, {"CODE_FUNC", "poll"}, {"VEXLOR_COMPONENT", "net"},
             {"VEXLOR_THREAD", "main"}, {"VEXLOR_DEPTH", "2"}},
            {{"MESSAGE", "named"}, {"PRIORITY", "5"}, {"SYSLOG_IDENTIFIER", "player"}, {"SYSLOG_FACILITY", "19"},
             {"TID", tid}, {"VEXLOR_COMPONENT", "storage"}, {"VEXLOR_THREAD", "worker"}, {"VEXLOR_DEPTH", "0"}},
        };
        // Whole entries compared: no CODE_FILE or CODE_LINE of the target's own source either.
        EXPECT_EQ(expected, journal.receive(2));

        journal.shutDown();
        for (int i = 0; i < 3; ++i) {
            log(VX_ERR, "lost");
        }
        journal.open();
        log(VX_ERR, "back");
        ASSERT_EQ(1u, journal.receive(1).size());
        EXPECT_EQ(1, m_syslog.count("journal target j: the journal takes no records - Connection refused; they are "
                                    "lost until it does",
                                    LOG_ERR));
        EXPECT_EQ(1, m_syslog.count("journal target j: the journal takes records again; 3 records lost", LOG_NOTICE));
    }, why)) << "no private mount namespace: " << why;
}

}  // namespace
