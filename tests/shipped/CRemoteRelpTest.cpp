// The remote target over RELP: through a kill -9 of a real rsyslogd (imrelp), next to plain TCP
// whose loss is shown, not claimed, and against relays of the test's own that break the protocol
// in each way a relay can. Every field is in CRemoteTargetTest, TLS in CRemoteFaultsTest.
#include <functional>
#include <memory>
#include <cstdio>
#include <set>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

#include "CFakeRelay.h"
#include "CRemoteFixture.h"
#include "CRsyslogd.h"

namespace {

using CInput = CRsyslogd::CInput;
using CRemoteRelpTest = CRemoteFixture;

// The distinct messages among `received`, and how many arrived more than once.
std::set<std::string> distinct(const std::vector<CReceived>& received, std::size_t& duplicates)
{
    std::set<std::string> messages;
    duplicates = 0;
    for (const CReceived& r : received) {
        duplicates += messages.insert(r.msg).second ? 0 : 1;
    }
    return messages;
}

// The bytes that the kernel took for the listener on `port` and nobody read yet.
long unreadAt(int port)
{
    std::istringstream table(readFile("/proc/net/tcp"));
    char own[8];
    std::snprintf(own, sizeof own, ":%04X", port);
    long unread = 0;
    for (std::string line; std::getline(table, line);) {
        std::istringstream in(line);
        std::string slot, local, remote, state, queues;
        in >> slot >> local >> remote >> state >> queues;
        if (local.size() > 5 && local.compare(local.size() - 5, 5, own) == 0 && state == "01") {
            unread += std::stol(queues.substr(queues.find(':') + 1), nullptr, 16);
        }
    }
    return unread;
}

// Both relays stop taking records, receive more while stopped, are killed, and are restarted a
// second later while the program logs on into a queue too small for it. Over RELP every record
// arrives or is counted as dropped, those sent again at most twice, and the one message at the
// end of the outage (and vexlorctl stats) has the exact counts. Over TCP, what the killed
// relay's kernel had acknowledged is gone, and the target could only say that some may be lost.
// Log calls never wait, and the threads sleep afterwards.
TEST_F(CRemoteRelpTest, LosesNothingUncountedWhenTheRelayIsKilledWhereTcpLosesWhatItsKernelHeld)
{
    CTempDir relpDir, tcpDir;
    CRsyslogd relp(relpDir.path(), CInput::RELP, "127.0.0.1");
    CRsyslogd tcp(tcpDir.path(), CInput::TCP, "127.0.0.1");
    const std::string common = ", host=127.0.0.1, queue=600, retry-ms=100, retry-max-ms=200, port=";
    read("target = " + plugin(0) + ", name=relp, transport=relp" + common + std::to_string(relp.port()) +
         "\ntarget = " + plugin(1) + ", name=tcp" + common + std::to_string(tcp.port()) + "\n" + CONTROL_LINE);
    const int part = 500;
    logNumbered(0, part);
    ASSERT_TRUE(relp.waitForMessages(part) && tcp.waitForMessages(part));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the last answers are out

    relp.signal(SIGSTOP);
    tcp.signal(SIGSTOP);
    logNumbered(part, part);
    std::pair<long, long> last{-1, -1};  // what the stopped relays' kernels took, once it stays
    ASSERT_TRUE(waitUntil([&] {
        const std::pair<long, long> now{unreadAt(relp.port()), unreadAt(tcp.port())};
        const bool settled = now == last && now.first > 0 && now.second > 0;
        last = now;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return settled;
    }));
    relp.stop(SIGKILL);
    tcp.stop(SIGKILL);
    const std::size_t beforeRestart = relp.received().size();
    logNumbered(2 * part, part);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    relp.start();
    tcp.start();

    const long long delivered =
        reported("remote target relp", "delivering to", " records delivered since the fault began");
    const long long sentAgain = reported("remote target relp", "delivering to", " of them sent again");
    const long long dropped = reported("remote target relp", "delivering to", " dropped because the queue was full");
    ASSERT_TRUE(relp.waitForMessages(beforeRestart + static_cast<std::size_t>(delivered)));
    std::size_t duplicates = 0;
    EXPECT_EQ(static_cast<std::size_t>(3 * part - dropped), distinct(relp.received(), duplicates).size());
    EXPECT_GT(dropped, 0);
    EXPECT_LE(duplicates, static_cast<std::size_t>(sentAgain));
    EXPECT_LE(sentAgain, 128);  // the window
    EXPECT_EQ(beforeRestart + static_cast<std::size_t>(delivered), relp.received().size());
    for (const char* once : {"lost the connection", "queue full", "delivering to"}) {
        EXPECT_EQ(1, m_syslog.countContaining(std::string("remote target relp: ") + once)) << once;
    }

    const long long tcpDropped = reported("remote target tcp", "again", " dropped because the queue was full");
    std::size_t tcpDuplicates = 0;
    const long long tcpLost =
        3 * part - tcpDropped - static_cast<long long>(distinct(tcp.received(), tcpDuplicates).size());
    EXPECT_GT(tcpLost, 0) << "the killed relay's kernel held records that plain syslog cannot count";
    EXPECT_EQ(0u, tcpDuplicates);
    EXPECT_EQ(1,
              m_syslog.countContaining(
                  "remote target tcp: lost the connection to tcp 127.0.0.1:" + std::to_string(tcp.port()) +
                  " - connection reset by the relay; records that its TCP had acknowledged "
                  "may be lost (plain syslog cannot tell how many)"));
    RecordProperty("tcp_records_lost_uncounted", static_cast<int>(tcpLost));
    // vexlorctl stats counts the same; over TCP, what the killed relay's kernel took counts as written.
    for (const auto& [name, queueFull] : {std::pair("relp", dropped), std::pair("tcp", tcpDropped)}) {
        CCounters counted;
        const auto expected = static_cast<unsigned long long>(3 * part - queueFull);
        const std::string target = name;  // a lambda may not capture a structured binding before C++20
        EXPECT_TRUE(waitUntil([&] { return (counted = statsOf(target))["written"] == expected; })) << name;
        EXPECT_EQ(queueFull, static_cast<long long>(counted["dropped"])) << name;
        EXPECT_GE(counted["reconnects"], 1u) << name;
    }
    expectSleepsWhileIdle("vexlor-remote");
    read("");
    EXPECT_EQ(0, m_syslog.countContaining("dropped at the end"));
}

// A relay of the test: takes the session, then hands each syslog frame (its transaction number,
// the record's text, and its place in the session from 0) to `answer`, which answers it (or not)
// and returns false to end the session. The test's records hold no line feed: a frame is a line.
using CAnswer = std::function<bool(int fd, unsigned txnr, const std::string& text, int index)>;

void send(int fd, unsigned txnr, const std::string& command, const std::string& data)
{
    const std::string frame = std::to_string(txnr) + " " + command + " " + std::to_string(data.size()) +
        (data.empty() ? "" : " " + data) + "\n";
    (void)!::send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
}

std::unique_ptr<CFakeRelay> fakeRelay(CAnswer answer)
{
    auto self = std::make_shared<CFakeRelay*>();
    auto relay = std::make_unique<CFakeRelay>([self, answer](int fd) {
        std::string pending, line;
        unsigned txnr = 0;
        for (int index = -1; (**self).readLine(fd, pending, line); ++index) {
            if (line.find(" close ") != std::string::npos) {
                send(fd, std::stoul(line), "rsp", "200 OK");
            } else if (line.find(" open ") != std::string::npos) {
                txnr = std::stoul(line);  // the offers follow on two lines
                (**self).readLine(fd, pending, line);
                (**self).readLine(fd, pending, line);
                send(fd, txnr, "rsp", "200 OK\nrelp_version=0\ncommands=syslog");
            } else if (!answer(fd, std::stoul(line), line.substr(line.rfind("] ") + 2), index)) {
                break;
            }
        }
        // What was sent goes out before the end: closing with frames unread would reset it.
        shutdown(fd, SHUT_WR);
        while ((**self).readLine(fd, pending, line)) {
        }
        close(fd);
    });
    *self = relay.get();  // before the target connects
    return relay;
}

// Relays that refuse records, never answer, end the session, answer out of order, send what is
// not RELP or refuse the session: one message each naming what the relay did, the records counted
// exactly, and no call waits.
TEST_F(CRemoteRelpTest, ReportsEachWayARelayBreaksTheProtocolOnceAndCountsExactly)
{
    std::set<std::string> taken, ended;  // by the refusing relay and the one that ends a session
    bool endedOnce = false;
    std::unique_ptr<CFakeRelay> relays[] = {
        fakeRelay([&](int fd, unsigned txnr, const std::string& text, int) {
            const bool refuse = text >= "record 15" && text < "record 25";  // ten of them
            send(fd, txnr, "rsp", refuse ? "500 disk full" : "200 OK");
            return refuse || taken.insert(text).second;
        }),
        fakeRelay([](int, unsigned, const std::string&, int) { return true; }),
        fakeRelay([&](int fd, unsigned txnr, const std::string& text, int index) {
            if (!endedOnce && index == 5) {
                endedOnce = true;
                send(fd, 0, "serverclose", "");
                return false;
            }
            send(fd, txnr, "rsp", "200 OK");
            return ended.insert(text).second || true;
        }),
        fakeRelay([](int fd, unsigned txnr, const std::string&, int index) {
            if (index == 1) {
                send(fd, txnr, "rsp", "200 OK");  // before the answer to the first
            }
            return true;
        }),
        fakeRelay([](int fd, unsigned, const std::string&, int) {
            (void)!::send(fd, "7 rsp x3\n", 9, MSG_NOSIGNAL);
            return true;
        }),
        std::make_unique<CFakeRelay>([](int fd) {
            send(fd, 1, "rsp", "500 too busy");  // to the session's open, the first transaction
            shutdown(fd, SHUT_WR);
            for (char unread[4096]; recv(fd, unread, sizeof unread, 0) > 0;) {
            }
            close(fd);
        }),
    };
    const char* const names[] = {"refuses", "silent", "ends", "unordered", "garbled", "busy"};
    std::string lines;
    for (int i = 0; i < 6; ++i) {
        lines += "target = " + plugin(i) + ", name=" + names[i] +
            ", transport=relp, host=127.0.0.1, port=" + std::to_string(relays[i]->port()) +
            ", connect-timeout-ms=300, retry-ms=50, retry-max-ms=100\n";
    }
    read(lines);
    const int records = 40;
    logNumbered(10, records);

    const auto to = [&](int i) { return "relp 127.0.0.1:" + std::to_string(relays[i]->port()); };
    const std::string retried = "; records wait in the queue (10000 records or 16777216 bytes at most) and delivery "
                                "is retried";
    for (const std::string& diagnostic : {
             "remote target refuses: " + to(0) +
                 " refused a record: \"500 disk full\"; refused records are dropped "
                 "and counted",
             "remote target refuses: " + to(0) + " takes records again; it refused 10",
             "remote target silent: cannot deliver to " + to(1) + " - no answer for 300 ms" + retried,
             "remote target unordered: cannot deliver to " + to(3) +
                 " - the relay broke the protocol with an answer to transaction 3 where the one to 2 was due" + retried,
             "remote target garbled: cannot deliver to " + to(4) +
                 " - the relay broke the protocol with a malformed frame \"7 rsp x3\"" + retried,
             "remote target busy: cannot deliver to " + to(5) + " - the relay refused the session: \"500 too busy\"" +
                 retried,
         }) {
        EXPECT_TRUE(m_syslog.waitFor(diagnostic));
        EXPECT_EQ(1, m_syslog.count(diagnostic));
    }
    const std::string lost = "lost the connection to " + to(2) + " - the relay ended the session (serverclose)";
    const long long unconfirmed = reported("remote target ends", lost, " records not confirmed yet");
    EXPECT_EQ(unconfirmed, reported("remote target ends", "again", " of them sent again"));
    read("");
    for (const char* name : {"silent", "unordered", "garbled", "busy"}) {
        EXPECT_EQ(records, droppedAtTheEnd(std::string("remote target ") + name));
    }
    for (std::unique_ptr<CFakeRelay>& relay : relays) {
        relay.reset();  // its thread ends: what it took can be read
    }
    EXPECT_EQ(static_cast<std::size_t>(records - 10), taken.size());
    EXPECT_EQ(static_cast<std::size_t>(records), ended.size());
    EXPECT_EQ(1, m_syslog.countContaining(lost));
    EXPECT_GE(unconfirmed, 1);
}

}  // namespace
