// The remote target over RELP: to a real rsyslogd (imrelp) with every field and sequence numbers,
// through a kill -9 of the relay (and the same over plain TCP, whose loss is shown, not claimed),
// over TLS, and against relays of the test's own that break the protocol in each way a relay can.
#include <functional>
#include <memory>
#include <set>
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

TEST_F(CRemoteRelpTest, DeliversEveryFieldWithSequenceNumbers)
{
    CTempDir dir;
    CRsyslogd rsyslogd(dir.path(), CInput::RELP, "127.0.0.1");
    read("target = " + plugin(0) + ", transport=relp, host=127.0.0.1, port=" + std::to_string(rsyslogd.port()) +
         ", hostname=dev-01, facility=local3, application-name=player\n");
    m_container.log(4711, 2, SECONDS, 7, VX_ERR, "main", "net", "poll", "link \"down\"\nagain");
    m_container.log(4711, 0, SECONDS, 7, VX_ENTERLEAVE, "worker", "net", "", "leaving");
    ASSERT_TRUE(rsyslogd.waitForMessages(2));
    const std::vector<CReceived> got = rsyslogd.received();
    ASSERT_EQ(2u, got.size());
    const std::string head = "1 2099-01-01T00:00:00.000007Z dev-01 player 4711 net [vexlor@32473 component=\"net\" ";
    EXPECT_EQ("<155>" + head +
                  "thread=\"main\" function=\"poll\" depth=\"2\"][meta sequenceId=\"1\"] link \"down\"#012again",
              got[0].fields());
    EXPECT_EQ("<159>" + head + "thread=\"worker\" depth=\"0\"][meta sequenceId=\"2\"] leaving", got[1].fields());
    read("");
    EXPECT_EQ(0, m_syslog.countContaining("remote target"));
}

// Both relays stop taking records, receive more while stopped, are killed and restarted. Over RELP
// every record arrives, the few twice that the relay had written but not answered, and the one
// message at the end of the outage says so. Over TCP, what the killed relay's kernel had
// acknowledged is gone, and the target could only say that some may be lost.
TEST_F(CRemoteRelpTest, LosesNothingWhenTheRelayIsKilledWhereTcpLosesWhatItsKernelHeld)
{
    CTempDir relpDir;
    CTempDir tcpDir;
    CRsyslogd relp(relpDir.path(), CInput::RELP, "127.0.0.1");
    CRsyslogd tcp(tcpDir.path(), CInput::TCP, "127.0.0.1");
    const std::string common = ", host=127.0.0.1, retry-ms=100, retry-max-ms=200, port=";
    read("target = " + plugin(0) + ", name=relp, transport=relp" + common + std::to_string(relp.port()) +
         "\ntarget = " + plugin(1) + ", name=tcp" + common + std::to_string(tcp.port()) + "\n");
    const int part = 500;
    logNumbered(0, part);
    ASSERT_TRUE(relp.waitForMessages(part));
    ASSERT_TRUE(tcp.waitForMessages(part));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the last answers are out

    relp.signal(SIGSTOP);
    tcp.signal(SIGSTOP);
    logNumbered(part, part);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // written into the stopped relays
    relp.stop(SIGKILL);
    tcp.stop(SIGKILL);
    const std::size_t beforeRestart = relp.received().size();
    logNumbered(2 * part, part);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    relp.start();
    tcp.start();

    const long long delivered = reported("remote target relp", "again", " records delivered since the fault began");
    const long long sentAgain = reported("remote target relp", "again", " of them sent again");
    const long long dropped = reported("remote target relp", "again", " dropped because the queue was full");
    ASSERT_TRUE(relp.waitForMessages(beforeRestart + static_cast<std::size_t>(delivered)));
    std::size_t duplicates = 0;
    EXPECT_EQ(static_cast<std::size_t>(3 * part), distinct(relp.received(), duplicates).size());
    EXPECT_EQ(0, dropped);
    EXPECT_LE(duplicates, static_cast<std::size_t>(sentAgain));
    EXPECT_LE(sentAgain, 128);  // the window
    EXPECT_EQ(beforeRestart + static_cast<std::size_t>(delivered), relp.received().size());

    ASSERT_GE(reported("remote target tcp", "again", " records delivered since the fault began"), 0);
    std::size_t tcpDuplicates = 0;
    const std::size_t tcpLost = 3 * part - distinct(tcp.received(), tcpDuplicates).size();
    EXPECT_GT(tcpLost, 0u) << "the killed relay's kernel held records that plain syslog cannot count";
    EXPECT_EQ(0u, tcpDuplicates);
    EXPECT_TRUE(
        m_syslog.contains("remote target tcp: lost the connection to tcp 127.0.0.1:" + std::to_string(tcp.port()) +
                          " - connection reset by the relay; records that its TCP had acknowledged may be "
                          "lost (plain syslog cannot tell how many)"));
    RecordProperty("tcp_records_lost_uncounted", static_cast<int>(tcpLost));
    read("");
    EXPECT_EQ(0, m_syslog.countContaining("dropped at the end"));
}

// RELP over TLS with the test's certificates: the relay takes the client that shows its
// certificate, and refuses the one that shows none, whose records are counted.
TEST_F(CRemoteRelpTest, DeliversOverTlsAndCountsWhatARefusingRelayDidNotTake)
{
    CTempDir dir;
    const CTestCertificates certificates(dir.path());
    CRsyslogd rsyslogd(dir.path(), CInput::RELP_TLS, "127.0.0.1", {&certificates, "certvalid", ""});
    const std::string port = std::to_string(rsyslogd.port());
    const std::string common =
        ", transport=relp-tls, host=localhost, drain-ms=300, port=" + port + ", ca=" + certificates.ca;
    read("target = " + plugin(0) + ", name=a" + common + ", cert=" + certificates.clientCert +
         ", key=" + certificates.clientKey + "\ntarget = " + plugin(1) + ", name=b" + common + "\n");
    const int records = 200;
    logNumbered(0, records);
    ASSERT_TRUE(rsyslogd.waitForMessages(records));
    EXPECT_TRUE(m_syslog.waitFor("remote target b: cannot deliver to relp-tls localhost:" + port +
                                 " - the relay refused the connection with the TLS alert \"certificate required\"; "
                                 "records wait in the queue (10000 records or 16777216 bytes at most) and delivery "
                                 "is retried"));
    read("");
    EXPECT_EQ(records, droppedAtTheEnd("remote target b"));
    EXPECT_EQ(static_cast<std::size_t>(records), rsyslogd.received().size());
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

// Relays that refuse records, never answer, end the session, answer out of order or send what is
// not RELP: one message each naming what the relay did, the records counted exactly, and no call
// waits.
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
    };
    const char* const names[] = {"refuses", "silent", "ends", "unordered", "garbled"};
    std::string lines;
    for (int i = 0; i < 5; ++i) {
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
         }) {
        EXPECT_TRUE(m_syslog.waitFor(diagnostic));
        EXPECT_EQ(1, m_syslog.count(diagnostic));
    }
    const std::string lost = "lost the connection to " + to(2) + " - the relay ended the session (serverclose)";
    const long long unconfirmed = reported("remote target ends", lost, " records not confirmed yet");
    EXPECT_EQ(unconfirmed, reported("remote target ends", "again", " of them sent again"));
    read("");
    for (const char* name : {"silent", "unordered", "garbled"}) {
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
