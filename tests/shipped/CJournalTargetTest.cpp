// The journal target writing to a journald stand-in that parses the native protocol: refusal
// without a journal, every field, and the records of a journal that stopped reading or whose
// socket went away counted exactly (in vexlorctl stats too), without a log call held up.
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "CPrivateMounts.h"
#include "CTargetFixture.h"

namespace {

using CJournalEntry = std::map<std::string, std::string>;

// Parses one datagram of the native protocol: "NAME=value\n" fields, and the binary-safe form
// "NAME\n", a 64-bit little-endian length, the value and "\n".
CJournalEntry parseEntry(const std::string& datagram)
{
    CJournalEntry entry;
    for (std::size_t at = 0, end; at < datagram.size();) {
        end = datagram.find('\n', at);
        const std::string line = datagram.substr(at, end - at);
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos) {
            entry[line.substr(0, equals)] = line.substr(equals + 1);
            at = end == std::string::npos ? datagram.size() : end + 1;
            continue;
        }
        std::uint64_t length = 0;
        for (int i = 0; i < 8; ++i) {
            length |= std::uint64_t{static_cast<unsigned char>(datagram.at(end + 1 + i))} << (8 * i);
        }
        entry[line] = datagram.substr(end + 9, length);
        at = end + 9 + length + 1;
    }
    return entry;
}

// Stands in for journald: a datagram socket at the journal's path (only in a private /run).
int journalStandIn()
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
    EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address)) << std::strerror(errno);
    return fd;
}

// The entries of the next `count` datagrams (one record each: the records here are small), waiting
// up to `waitMs` for each (a hang guard); with no wait, the entries in the queue now.
std::vector<CJournalEntry> receive(int fd, std::size_t count, int waitMs = 10000)
{
    std::vector<CJournalEntry> entries;
    char buffer[65536];
    for (pollfd readable{fd, POLLIN, 0}; entries.size() < count && poll(&readable, 1, waitMs) > 0;) {
        const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        entries.push_back(parseEntry(std::string(buffer, static_cast<std::size_t>(std::max<ssize_t>(got, 0)))));
    }
    return entries;
}

// How many datagrams wait in the stand-in's queue; reads them all.
std::size_t drain(int fd) { return receive(fd, SIZE_MAX, 0).size(); }

using CJournalTargetTest = CTargetFixture;

// On a thread of its own with a private /run, where the stand-in can take the journal's place;
// the rest of the process and the machine keep theirs.
TEST_F(CJournalTargetTest, SendsEveryFieldCountsWhatTheJournalDidNotTakeAndRefusesWithoutAJournal)
{
    std::string why;
    std::thread worker([&] {
        CPrivateMounts mounts;  // this thread's alone: unshare copies the thread's file system context
        why = mounts.why();
        if (!mounts.ok()) {
            return;
        }
        mounts.tmpfs("/run", "1m");
        std::filesystem::create_directories("/run/systemd/journal");
        read("target = " VEXLOR_TEST_TARGET_JOURNAL "\n");
        EXPECT_EQ(1, m_syslog.countContaining("no journal at /run/systemd/journal/socket - No such file"));

        vexlor_get_application_name();  // the control target's answers start the library's own instance
        const auto before = descriptorsAndThreads();
        int journal = journalStandIn();
        read("target = " VEXLOR_TEST_TARGET_JOURNAL ", name=j, facility=local3, levels=emerg-notice\n" + CONTROL_LINE);
        m_container.log(42, 2, SECONDS, 7, VX_ERR, "main", "net", "poll", "link down\nsecond line");
        log(VX_DEBUG, "filtered out by levels=");
        m_container.setAppname("jukebox");  // not "player": vexlorctl tests ask that by name
        m_container.log(42, 0, SECONDS, 9, VX_NOTICE, "worker", "storage", "", "named");
        // The entries in the protocol's plain form (the message, with its line feed, set apart).
        const std::string both = "SYSLOG_FACILITY=19\nTID=" + std::to_string(syscall(SYS_gettid)) + "\n";
        std::vector<CJournalEntry> expected = {
            parseEntry(both + "PRIORITY=3\nSYSLOG_IDENTIFIER=" + program_invocation_short_name +
                       "\nCODE_FUNC=poll\nVEXLOR_COMPONENT=net\nVEXLOR_THREAD=main\nVEXLOR_DEPTH=2\n"),
            parseEntry(both +
                       "MESSAGE=named\nPRIORITY=5\nSYSLOG_IDENTIFIER=jukebox\nVEXLOR_COMPONENT=storage\n"
                       "VEXLOR_THREAD=worker\nVEXLOR_DEPTH=0\n")};
        expected[0]["MESSAGE"] = "link down\nsecond line";
        // Whole entries compared: no CODE_FILE or CODE_LINE of the target's own source either.
        EXPECT_EQ(expected, receive(journal, 2));

        // A journal that stops reading, then one whose socket is gone for a moment: no log call
        // waits (the limit is a hang guard), and what the journal did not take is counted exactly.
        const std::string who = "journal target \"j\" (/run/systemd/journal/socket): ";
        CCounters counted{{"written", 2}, {"dropped", 0}, {"lost", 0}, {"suppressed", 0}};
        for (const std::string reason :
             {"the journal takes nothing (its queue stayed full)", "No such file or directory"}) {
            const bool gone = reason[0] == 'N';
            if (gone) {
                close(journal);
                std::filesystem::remove("/run/systemd/journal/socket");
            }
            const auto start = std::chrono::steady_clock::now();
            for (int n = 0; n < 2000; ++n) {
                log(VX_ERR, "record");
            }
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
            const std::size_t taken = gone ? 0 : drain(journal);
            counted["written"] += taken + 1;
            counted["lost"] += 2000 - taken;
            journal = gone ? journalStandIn() : journal;
            log(VX_ERR, "after");
            EXPECT_EQ(1u, drain(journal));
            EXPECT_EQ(1, m_syslog.countStarting(who + "send failed: " + reason + "; records are lost", LOG_ERR));
            EXPECT_EQ(1,
                      m_syslog.countStarting(who + "works again; " + std::to_string(2000 - taken) + " ", LOG_WARNING));
        }
        EXPECT_EQ(counted, statsOf("j"));
        read("");
        close(journal);
        EXPECT_TRUE(countsReturnTo(before));
    });
    worker.join();
    ASSERT_EQ("", why) << "no private mount namespace";
}

}  // namespace
