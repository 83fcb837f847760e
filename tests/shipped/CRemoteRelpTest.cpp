// The remote target over RELP: through a kill -9 of a real rsyslogd (imrelp), next to plain TCP
// whose loss is shown, not claimed, and against relays of the test's own that break the protocol
// in each way a relay can. Every field and TLS are in CRemoteTargetTest.
#include <cstdio>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

#include "CFakeRelay.h"
#include "CRemoteFixture.h"
#include "CRsyslogd.h"

namespace {

using CRemoteRelpTest = CRemoteFixture;

// The bytes that the kernel took for the stopped relay on `port`, once they stay the same.
long settledUnreadAt(int port)
{
    long last = -1, now = 0;
    waitUntil([&] {
        std::istringstream table(readFile("/proc/net/tcp"));
        now = 0;
        for (std::string line; std::getline(table, line);) {
            unsigned local = 0, state = 0;
            unsigned long unread = 0;
            // "sl: local:port remote:port state tx_queue:rx_queue ...", in hex; 01 is established.
            if (std::sscanf(line.c_str(), "%*u: %*x:%x %*x:%*x %x %*x:%lx", &local, &state, &unread) == 3 &&
                local == static_cast<unsigned>(port) && state == 1) {
                now += static_cast<long>(unread);
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return std::exchange(last, now) == now && now > 0;
    });
    return now;
}

// How many messages `relay` wrote, and how many distinct ones.
std::pair<long long, long long> receivedAt(const CRsyslogd& relay)
{
    std::multiset<std::string> all;
    for (const CReceived& r : relay.received()) {
        all.insert(r.msg);
    }
    return {static_cast<long long>(all.size()), static_cast<long long>(std::set(all.begin(), all.end()).size())};
}

// Both relays stop taking records, receive more while stopped, are killed, and are restarted a
// second later while the program logs on into a queue too small for it. Over RELP every record
// arrives or is counted as dropped, those sent again (at most the window) at most twice, and the
// one message at the end of the outage and vexlorctl stats have the exact counts. Over TCP, what
// the killed relay's kernel had acknowledged is gone, and the target can only say that some may be.
TEST_F(CRemoteRelpTest, LosesNothingUncountedWhenTheRelayIsKilledWhereTcpLosesWhatItsKernelHeld)
{
    CTempDir relpDir, tcpDir;
    CRsyslogd relp(relpDir.path(), CRsyslogd::CInput::RELP, "127.0.0.1");
    CRsyslogd tcp(tcpDir.path(), CRsyslogd::CInput::TCP, "127.0.0.1");
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
    ASSERT_GT(settledUnreadAt(relp.port()), 0);
    ASSERT_GT(settledUnreadAt(tcp.port()), 0);
    relp.stop(SIGKILL);
    tcp.stop(SIGKILL);
    const long long beforeRestart = receivedAt(relp).first;
    logNumbered(2 * part, part);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    relp.start();
    tcp.start();

    const long long delivered = reported("remote target relp", "delivering to", " records delivered since");
    const long long sentAgain = reported("remote target relp", "delivering to", " of them sent again");
    const long long dropped = reported("remote target relp", "delivering to", " dropped because the queue");
    ASSERT_TRUE(relp.waitForMessages(static_cast<std::size_t>(beforeRestart + delivered)));
    const auto [all, distinct] = receivedAt(relp);
    EXPECT_EQ(3 * part - dropped, distinct);
    EXPECT_GT(dropped, 0);
    EXPECT_LE(all - distinct, sentAgain);
    EXPECT_TRUE(sentAgain > 0 && sentAgain <= 128) << sentAgain;  // what the window held at the kill
    EXPECT_EQ(beforeRestart + delivered, all);

    const long long tcpDropped = reported("remote target tcp", "again", " dropped because the queue");
    const auto [tcpAll, tcpDistinct] = receivedAt(tcp);
    EXPECT_GT(3 * part - tcpDropped - tcpDistinct, 0) << "the killed relay's kernel held records TCP cannot count";
    EXPECT_EQ(tcpAll, tcpDistinct);
    for (const char* once : {"relp: lost the connection", "relp: queue full", "relp: delivering to",
                             "tcp: lost the connection to tcp 127.0.0.1:", "acknowledged may be lost"}) {
        EXPECT_EQ(1, m_syslog.countContaining(once)) << once;
    }
    // vexlorctl stats counts the same; over TCP, what the killed relay's kernel took counts as written.
    for (const auto& [name, queueFull] : {std::pair("relp", dropped), std::pair("tcp", tcpDropped)}) {
        CCounters counted;
        const auto expected = static_cast<unsigned long long>(3 * part - queueFull);
        EXPECT_TRUE(waitUntil([&, name = name] { return (counted = statsOf(name))["written"] == expected; })) << name;
        EXPECT_EQ(queueFull, static_cast<long long>(counted["dropped"])) << name;
        EXPECT_GE(counted["reconnects"], 1u) << name;
    }
    expectSleepsWhileIdle("vexlor-remote");
    read("");
    EXPECT_EQ(0, m_syslog.countContaining("dropped at the end"));
}

// A frame as a relay sends it.
std::string frame(unsigned txnr, const std::string& command, const std::string& data = "")
{
    return std::to_string(txnr) + " " + command + " " + std::to_string(data.size()) + (data.empty() ? "" : " " + data) +
        "\n";
}

// A relay of the test: answers the session's open with `opened` (and ends a session it refused)
// and a close with 200, and each syslog frame with what `answer` makes of its transaction number
// and the record's text: nothing, an answer, or a serverclose that ends the session. The test's
// records hold no line feed: a frame is a line.
using CAnswer = std::function<std::string(unsigned txnr, const std::string& text)>;

std::unique_ptr<CFakeRelay> fakeRelay(CAnswer answer, std::string opened = "200 OK\nrelp_version=0\ncommands=syslog")
{
    return std::make_unique<CFakeRelay>([answer, opened](const CFakeRelay& relay, int fd) {
        std::string pending, line, out;
        for (bool ends = false; !ends && relay.readLine(fd, pending, line);) {
            const unsigned txnr = std::stoul(line);
            if (line.find(" open ") != std::string::npos) {
                relay.readLine(fd, pending, line);  // the offers follow on two lines
                relay.readLine(fd, pending, line);
                out = frame(txnr, "rsp", opened);
                ends = opened.rfind("200 ", 0) != 0;
            } else {
                out = line.find(" close ") != std::string::npos ? frame(txnr, "rsp", "200 OK")
                                                                : answer(txnr, line.substr(line.rfind("] ") + 2));
                ends = out.find(" serverclose ") != std::string::npos;
            }
            (void)!send(fd, out.data(), out.size(), MSG_NOSIGNAL);
        }
        // What was sent goes out before the end: closing with frames unread would reset it.
        shutdown(fd, SHUT_WR);
        while (relay.readLine(fd, pending, line)) {
        }
        close(fd);
    });
}

// Relays that refuse records, end the session, never answer, answer out of order, send what is
// not RELP or refuse the session: one message each naming what the relay did, the records counted
// exactly (the last four drop every one at the end), attempts retried with back-off, no log call
// waits, and nothing left behind.
TEST_F(CRemoteRelpTest, ReportsEachWayARelayBreaksTheProtocolOnceAndCountsExactly)
{
    std::set<std::string> taken, ended;  // by the refusing relay and the one that ends a session
    bool endedOnce = false;
    const CAnswer silent = [](unsigned, const std::string&) { return std::string(); };
    const std::string neverTook = "cannot deliver to ";
    struct {
        const char* name;
        std::unique_ptr<CFakeRelay> relay;
        std::string fault;  // the one diagnostic: before the relay's address, and after it
        std::string said;
    } cases[] = {
        {"refuses", fakeRelay([&, held = std::string()](unsigned txnr, const std::string& text) mutable {
             const bool refuse = text >= "record 15" && text < "record 25";  // ten of them
             EXPECT_TRUE(refuse || taken.insert(text).second) << text;
             // The answers up to the third refusal in one piece: records taken before it do not end it.
             held += frame(txnr, "rsp", refuse ? "500 disk full" : "200 OK");
             return text < "record 17" ? std::string() : std::exchange(held, std::string());
         }),
         "", " refused a record: \"500 disk full\"; refused records are dropped and counted"},
        {"ends", fakeRelay([&](unsigned txnr, const std::string& text) {
             if (txnr == 7 && !std::exchange(endedOnce, true)) {  // the sixth record
                 return frame(0, "serverclose");
             }
             ended.insert(text);
             return frame(txnr, "rsp", "200 OK");
         }),
         "lost the connection to ", " - the relay ended the session (serverclose)"},
        {"silent", fakeRelay(silent), neverTook, " - no answer for 300 ms"},
        {"unordered",
         fakeRelay([](unsigned txnr, const std::string&) { return txnr == 3 ? frame(3, "rsp", "200 OK") : ""; }),
         neverTook, " - the relay broke the protocol with an answer to transaction 3 where the one to 2 was due"},
        {"garbled", fakeRelay([](unsigned, const std::string&) { return std::string("7 rsp x3\n"); }), neverTook,
         " - the relay broke the protocol with a malformed frame \"7 rsp x3\""},
        {"busy", fakeRelay(silent, "500 too busy"), neverTook, " - the relay refused the session: \"500 too busy\""},
    };
    const auto before = descriptorsAndThreads();
    std::string lines;
    for (int i = 0; i < 6; ++i) {
        lines += "target = " + plugin(i) + ", name=" + cases[i].name +
            ", transport=relp, host=127.0.0.1, port=" + std::to_string(cases[i].relay->port()) +
            ", connect-timeout-ms=300, retry-ms=50, retry-max-ms=100\n";
    }
    read(lines);
    const int records = 40;
    logNumbered(10, records);
    for (const auto& c : cases) {
        const std::string diagnostic = "remote target " + std::string(c.name) + ": " + c.fault +
            "relp 127.0.0.1:" + std::to_string(c.relay->port()) + c.said;
        EXPECT_TRUE(waitUntil([&] { return m_syslog.countContaining(diagnostic) == 1; })) << diagnostic;
    }
    const long long unconfirmed = reported("remote target ends", "serverclose", " records not confirmed yet");
    EXPECT_GE(unconfirmed, 1);
    EXPECT_EQ(unconfirmed, reported("remote target ends", "again", " of them sent again"));
    read("");
    for (auto& c : cases) {
        if (c.fault == neverTook) {
            EXPECT_EQ(records, droppedAtTheEnd("remote target " + std::string(c.name)));
        }
        EXPECT_LE(c.relay->connections(), 25) << c.name;  // a few attempts, not thousands
    }
    EXPECT_TRUE(countsReturnTo(before));
    for (auto& c : cases) {
        c.relay.reset();  // its thread ends: what it took can be read
    }
    EXPECT_EQ(1, m_syslog.countContaining("takes records again; it refused 10"));
    EXPECT_EQ(1, m_syslog.countContaining("delivering to"));  // the relay that ended the session
    EXPECT_EQ(static_cast<std::size_t>(records - 10), taken.size());
    EXPECT_EQ(static_cast<std::size_t>(records), ended.size());
}

}  // namespace
