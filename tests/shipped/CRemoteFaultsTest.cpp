// The remote target against relays that fail it: ones that close or reset every connection, one
// that resets after taking some records, a relay whose DNS server never answers. Each time the
// records the target reports equal what the test counts, no log call waits, and nothing is left
// behind. Relays refusing certificates are in CRemoteTargetTest.
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

// A relay at its session limit accepts and closes (or resets) at once: each connection is a
// failed attempt, retried with back-off, and the records wait and are counted at the end.
// Unloading meanwhile returns at once: the sender's own thread drains and ends, leaving nothing.
TEST_F(CRemoteFaultsTest, BacksOffFromARelayThatEndsEveryConnectionAtOnce)
{
    CFakeRelay closing([](const CFakeRelay&, int fd) { close(fd); });
    CFakeRelay resetting([](const CFakeRelay&, int fd) {
        const linger abort{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        close(fd);
    });
    const auto before = descriptorsAndThreads();
    const std::string common = ", host=127.0.0.1, retry-ms=50, retry-max-ms=200, drain-ms=2000, port=";
    read("target = " + plugin(0) + ", name=closing" + common + std::to_string(closing.port()) +
         "\ntarget = " + plugin(1) + ", name=resetting" + common + std::to_string(resetting.port()) + "\n");
    const int records = 500;
    logNumbered(0, records);
    for (const CFakeRelay* relay : {&closing, &resetting}) {
        const std::string said = "cannot deliver to tcp 127.0.0.1:" + std::to_string(relay->port()) + " - connection " +
            (relay == &closing ? "closed" : "reset") + " by the relay right after accepting the connection";
        EXPECT_TRUE(waitUntil([&] { return m_syslog.countContaining(said) == 1; })) << said;
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const Clock::time_point start = Clock::now();
    read("");
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1000));  // far below drain-ms
    logNumbered(records, 5);  // nobody waits meanwhile
    for (const auto& [name, relay] : {std::pair("closing", &closing), std::pair("resetting", &resetting)}) {
        EXPECT_EQ(records, droppedAtTheEnd(std::string("remote target ") + name));
        // 1 s of back-off from 50 ms, doubling up to 200 ms, and the drain: a few attempts, not thousands.
        EXPECT_LE(relay->connections(), 25) << name;
    }
    EXPECT_EQ(0, m_syslog.countContaining("delivering to"));
    EXPECT_TRUE(countsReturnTo(before));
}

// A relay that resets the connection after every 50 records, dropping what it had received but
// not read (it counts that itself here, once a small window stopped the target). What its TCP had
// not acknowledged is sent again; what it had acknowledged and dropped is what plain syslog
// cannot count, and the target says so.
TEST_F(CRemoteFaultsTest, SendsAgainWhatAResettingRelayDidNotAcknowledge)
{
    std::mutex mutex;
    std::multiset<std::string> seen;  // what it received or discarded, guarded by mutex
    std::size_t discarded = 0;  // guarded by mutex
    const auto serve = [&](const CFakeRelay& relay, int fd) {
        std::string pending, line;
        for (int i = 0; i < 50 && relay.readLine(fd, pending, line); ++i) {
            std::lock_guard<std::mutex> guard(mutex);
            seen.insert(line.substr(line.find("] ") + 2));
        }
        for (int queued = -1, before = -2; queued != before && !relay.stopping();) {
            before = queued;
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            ioctl(fd, FIONREAD, &queued);
        }
        pending += readWhileArriving(fd, 0);
        const linger abort{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        close(fd);
        std::lock_guard<std::mutex> guard(mutex);
        for (std::size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
            seen.insert(pending.substr(pending.find("] ") + 2, end - pending.find("] ") - 2));
            ++discarded;
        }
    };
    CFakeRelay resetting(serve, 4096);
    read("target = " + plugin(0) + ", host=127.0.0.1, framing=lf, port=" + std::to_string(resetting.port()) + "\n");
    const std::size_t records = 1000;
    logNumbered(0, records);
    ASSERT_TRUE(waitUntil([&] {
        std::lock_guard<std::mutex> guard(mutex);
        return seen.size() >= records;
    }));
    read("");
    std::lock_guard<std::mutex> guard(mutex);
    EXPECT_EQ(records, std::set<std::string>(seen.begin(), seen.end()).size());
    EXPECT_EQ(records, seen.size()) << "a record received or discarded twice";
    EXPECT_GT(discarded, 0u);
    EXPECT_EQ(0, m_syslog.countContaining("dropped at the end"));
    EXPECT_LE(1, m_syslog.countContaining("reset by the relay; records that its TCP had acknowledged may be lost"));
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
    const sockaddr_in address{AF_INET, htons(53), {htonl(0x7f00004d)}, {}};  // 127.0.0.77
    ASSERT_EQ(0, bind(silent, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    mounts.bind(m_dir.write("resolv.conf", "nameserver 127.0.0.77\noptions timeout:1 attempts:1\n"),
                "/etc/resolv.conf");
    const auto before = descriptorsAndThreads();

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
    const std::string fault =
        "remote: cannot deliver to tcp relay.vexlor-test:514 - cannot resolve - no answer in time";
    EXPECT_TRUE(waitUntil([&] { return m_syslog.countContaining(fault) == 1; }));
    read("");
    EXPECT_EQ(30, droppedAtTheEnd("remote target remote"));
    // Freed as soon as the resolver gives up (1 s), and its threads and sockets end soon after.
    EXPECT_TRUE(waitUntil([] { return CResolver::liveLookups() == 0; }));
    EXPECT_TRUE(countsReturnTo(before));
    close(silent);
}

}  // namespace
