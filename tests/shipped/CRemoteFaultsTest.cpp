// The remote target against relays that fail it: one that refuses the client's certificate, ones
// that close or reset every connection, a relay whose DNS server never answers, a relay that is
// gone when the target is unloaded. Each time the records the target reports equal what the test
// counts, no log call waits, and nothing is left behind.
#include <arpa/inet.h>
#include <filesystem>
#include <netinet/in.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "CFakeRelay.h"
#include "CPrivateMounts.h"
#include "CResolver.h"
#include "CRsyslogd.h"
#include "CRemoteFixture.h"

namespace {

using CRemoteFaultsTest = CRemoteFixture;
using Clock = std::chrono::steady_clock;

// The threads named `name`, and the open descriptors, of this process.
int threadsNamed(const std::string& name)
{
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        count += readFile(task.path() / "comm") == name + "\n" ? 1 : 0;
    }
    return count;
}

int openDescriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto& fd : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

// TLS 1.3 ends the client's handshake before the relay checked its certificate: the target waits
// for that verdict, names the relay's alert, and counts every record instead of writing it into
// the refused connection. The same over RELP, whose relay would answer the session's open.
TEST_F(CRemoteFaultsTest, CountsEveryRecordARelayRefusingItsCertificateDidNotTake)
{
    CTempDir tlsDir, relpDir;
    const CTestCertificates certificates(tlsDir.path());
    CRsyslogd tls(tlsDir.path(), CRsyslogd::CInput::TLS, "127.0.0.1",
                  {&certificates, "x509/name", "vexlor-test-client"});
    CRsyslogd relp(relpDir.path(), CRsyslogd::CInput::RELP_TLS, "127.0.0.1",
                   {&certificates, "name", "vexlor-test-client"});
    int variant = 0;
    for (const auto& [relay, transport] : {std::pair(&tls, "tls"), std::pair(&relp, "relp-tls")}) {
        CRsyslogd& rsyslogd = *relay;
        const std::string port = std::to_string(rsyslogd.port());
        const std::string common = ", transport=" + std::string(transport) +
            ", host=localhost, drain-ms=300, port=" + port + ", ca=" + certificates.ca;
        m_syslog.clear();
        const std::string a = plugin(variant++), b = plugin(variant++), c = plugin(variant++);
        read("target = " + a + ", name=a" + common + ", cert=" + certificates.clientCert + ", key=" +
             certificates.clientKey + "\ntarget = " + b + ", name=b" + common + "\ntarget = " + c + ", name=c" +
             common + ", cert=" + certificates.otherClientCert + ", key=" + certificates.otherClientKey + "\n");
        const int records = 300;
        logNumbered(0, records);
        ASSERT_TRUE(rsyslogd.waitForMessages(records));  // from a, which the relay accepts
        const std::string refused = ": cannot deliver to " + std::string(transport) + " localhost:" + port +
            " - the relay refused the connection with the TLS alert \"";
        const std::string retried = "\"; records wait in the queue (10000 records or 16777216 bytes at most) and "
                                    "delivery is retried";
        EXPECT_TRUE(m_syslog.waitFor("remote target b" + refused + "certificate required" + retried));
        EXPECT_TRUE(m_syslog.waitFor("remote target c" + refused + "unknown CA" + retried));
        read("");
        EXPECT_EQ(records, droppedAtTheEnd("remote target b"));
        EXPECT_EQ(records, droppedAtTheEnd("remote target c"));
        EXPECT_EQ(0, m_syslog.countContaining("delivering to"));
        EXPECT_EQ(static_cast<std::size_t>(records), rsyslogd.received().size());
    }
}

// A relay at its session limit accepts and closes (or resets) at once: each connection is a
// failed attempt, retried with back-off, and the records wait and are counted at the end.
// Unloading meanwhile returns at once: the sender's own thread drains and ends, leaving nothing.
TEST_F(CRemoteFaultsTest, BacksOffFromARelayThatEndsEveryConnectionAtOnce)
{
    CFakeRelay closing([](int fd) { close(fd); });
    CFakeRelay resetting([](int fd) {
        const linger abort{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        close(fd);
    });
    const int threadsBefore = threadsNamed("vexlor-remote");
    const int descriptorsBefore = openDescriptors();
    const std::string common = ", host=127.0.0.1, retry-ms=50, retry-max-ms=200, drain-ms=2000, port=";
    read("target = " + plugin(0) + ", name=closing" + common + std::to_string(closing.port()) +
         "\ntarget = " + plugin(1) + ", name=resetting" + common + std::to_string(resetting.port()) + "\n");
    const int records = 500;
    logNumbered(0, records);
    for (const auto& [name, how] : {std::pair("closing", "closed"), std::pair("resetting", "reset")}) {
        EXPECT_TRUE(m_syslog.waitFor(std::string("remote target ") + name + ": cannot deliver to tcp 127.0.0.1:" +
                                     std::to_string((name[0] == 'c' ? closing : resetting).port()) + " - connection " +
                                     how +
                                     " by the relay right after accepting the connection; records wait in the "
                                     "queue (10000 records or 16777216 bytes at most) and delivery is retried"));
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const Clock::time_point start = Clock::now();
    read("");
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1000));  // far below drain-ms
    logNumbered(records, 5);  // nobody waits meanwhile
    EXPECT_EQ(records, droppedAtTheEnd("remote target closing"));
    EXPECT_EQ(records, droppedAtTheEnd("remote target resetting"));
    EXPECT_EQ(0, m_syslog.countContaining("delivering to"));
    // 1 s of back-off from 50 ms, doubling up to 200 ms, and the drain: a few attempts, not thousands.
    EXPECT_LE(closing.connections(), 25);
    EXPECT_LE(resetting.connections(), 25);
    EXPECT_TRUE(waitUntil([&] { return threadsNamed("vexlor-remote") == threadsBefore; }));
    EXPECT_EQ(descriptorsBefore, openDescriptors());
}

// A relay that resets the connection after every 50 records, dropping what it had received but
// not read (it counts that itself here, once a small window stopped the target). What its TCP had
// not acknowledged is sent again; what it had acknowledged and dropped is what plain syslog
// cannot count, and the target says so.
TEST_F(CRemoteFaultsTest, SendsAgainWhatAResettingRelayDidNotAcknowledge)
{
    std::mutex mutex;
    std::set<std::string> received, discarded;  // guarded by mutex
    std::function<void(int)> serve;
    CFakeRelay resetting([&](int fd) { serve(fd); }, 4096);
    serve = [&](int fd) {
        std::string pending, line;
        for (int i = 0; i < 50 && resetting.readLine(fd, pending, line); ++i) {
            std::lock_guard<std::mutex> guard(mutex);
            EXPECT_TRUE(received.insert(line.substr(line.find("] ") + 2)).second) << line;
        }
        for (int queued = -1, before = -2; queued != before && !resetting.stopping();) {
            before = queued;
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            ioctl(fd, FIONREAD, &queued);
        }
        char unread[65536];
        pending.append(
            unread,
            static_cast<std::size_t>(std::max<ssize_t>(0, recv(fd, unread, sizeof unread, MSG_PEEK | MSG_DONTWAIT))));
        const linger abort{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        close(fd);
        std::lock_guard<std::mutex> guard(mutex);
        for (std::size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
            EXPECT_TRUE(discarded.insert(pending.substr(pending.find("] ") + 2, end - pending.find("] ") - 2)).second);
        }
    };
    read("target = " + plugin(0) + ", host=127.0.0.1, framing=lf, port=" + std::to_string(resetting.port()) + "\n");
    const int records = 1000;
    logNumbered(0, records);
    ASSERT_TRUE(waitUntil([&] {
        std::lock_guard<std::mutex> guard(mutex);
        return received.size() + discarded.size() >= static_cast<std::size_t>(records);
    }));
    read("");
    std::lock_guard<std::mutex> guard(mutex);
    std::set<std::string> all = received;
    all.insert(discarded.begin(), discarded.end());
    EXPECT_EQ(static_cast<std::size_t>(records), all.size());
    EXPECT_EQ(all.size(), received.size() + discarded.size()) << "a record both received and discarded";
    EXPECT_GT(discarded.size(), 0u);
    EXPECT_EQ(0, m_syslog.countContaining("dropped at the end"));
    EXPECT_LE(1,
              m_syslog.countContaining(
                  "remote target remote: lost the connection to tcp 127.0.0.1:" + std::to_string(resetting.port()) +
                  " - connection reset by the relay; records that its TCP had "
                  "acknowledged may be lost (plain syslog cannot tell how many)"));
}

// The relay's name is looked up with a DNS server that never answers: each attempt waits at most
// connect-timeout-ms, one lookup at a time, and nothing is left behind once the system's resolver
// has given up on it.
TEST_F(CRemoteFaultsTest, BoundsLookupsOfANameWhoseServerNeverAnswers)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "under ThreadSanitizer the target looks names up synchronously";
#endif
    CPrivateMounts mounts;
    if (!mounts.ok()) {
        GTEST_SKIP() << mounts.why();
    }
    // A DNS server on a loopback address that takes every question and answers none.
    const int silent = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    inet_pton(AF_INET, "127.0.0.77", &address.sin_addr);
    ASSERT_EQ(0, bind(silent, reinterpret_cast<sockaddr*>(&address), sizeof address));
    mounts.bind(m_dir.write("resolv.conf", "nameserver 127.0.0.77\noptions timeout:1 attempts:1\n"),
                "/etc/resolv.conf");
    const auto threads = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); };
    const auto threadsBefore = threads();

    {
        // Attempts faster than the resolver gives up: the one lookup is taken up again each time.
        CWaiter waiter;
        CResolver resolver;
        for (int attempt = 0; attempt < 20; ++attempt) {
            std::string error;
            EXPECT_EQ(nullptr,
                      resolver.resolve("relay.vexlor-test", 514, SOCK_STREAM, waiter,
                                       Clock::now() + std::chrono::milliseconds(30), error));
            EXPECT_EQ("cannot resolve - no answer in time", error);
            EXPECT_LE(CResolver::liveLookups(), 1);
        }
    }
    read("target = " + plugin(0) +
         ", host=relay.vexlor-test, connect-timeout-ms=100, retry-ms=20, "
         "retry-max-ms=50, drain-ms=100\n");
    logNumbered(0, 30);
    EXPECT_TRUE(m_syslog.waitFor("remote target remote: cannot deliver to tcp relay.vexlor-test:514 - cannot resolve - "
                                 "no answer in time; records wait in the queue (10000 records or 16777216 bytes at "
                                 "most) and delivery is retried"));
    read("");
    EXPECT_EQ(30, droppedAtTheEnd("remote target remote"));
    // Freed as soon as the resolver gives up (1 s), and its threads end soon after.
    EXPECT_TRUE(waitUntil([] { return CResolver::liveLookups() == 0; }));
    EXPECT_TRUE(waitUntil([&] { return threads() == threadsBefore; }));
    close(silent);
}

}  // namespace
