// The remote target loaded through a configuration file, sending to a real rsyslogd on loopback:
// every field over UDP, TCP (both framings) and TLS, a receiver restart with exact counts, unload
// and exit while the receiver is dead, fork children, refused parameters and the idle thread.
#include <chrono>
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "CRsyslogd.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "targets/CLogTargetContainer.h"
#include "waitUntil.h"

namespace {

using Clock = std::chrono::steady_clock;
using CInput = CRsyslogd::CInput;

// Past 2038, for 32-bit systems; rsyslogd 8.2302 takes RFC 5424 times only up to the year 2099.
const long long SECONDS = 4070908800LL;  // 2099-01-01T00:00:00Z
const char TIMESTAMP[] = "2099-01-01T00:00:00.000007Z";

// The plug-in's path written another way for each further remote target of one configuration:
// the container loads one library path once.
std::string remotePath(int variant = 0)
{
    std::string path = VEXLOR_TEST_TARGET_REMOTE;
    for (int i = 0; i < variant; ++i) {
        path.insert(path.rfind('/'), "/.");
    }
    return path;
}

std::vector<std::string> fields(const CReceived& r)
{
    return {r.pri, r.version, r.timestamp, r.hostname, r.appname, r.procid, r.msgid, r.structuredData, r.msg};
}

long long elapsedMs(Clock::time_point since)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count();
}

class CRemoteTargetTest : public ::testing::Test {
protected:
    void read(const std::string& content)
    {
        m_dir.write("vexlor.cfg", content);
        m_container.onCfgUpdate();
    }
    void log(const std::string& message, vexlor_level* level = VX_INFO)
    {
        m_container.log(4711, 0, SECONDS, 7, level, "main", "net", "", message);
    }
    // N from the first diagnostic "<prefix>N<suffix>", waiting for it; -1 if none came.
    long long countIn(const std::string& prefix, const std::string& suffix)
    {
        long long count = -1;
        waitUntil([&] {
            for (const CSyslogMessage& m : m_syslog.messages()) {
                const std::size_t end = m.text.find(suffix);
                if (m.text.rfind(prefix, 0) == 0 && end != std::string::npos) {
                    count = std::stoll(m.text.substr(prefix.size(), end - prefix.size()));
                    return true;
                }
            }
            return false;
        });
        return count;
    }
    // Everything sent to syslog, for failure messages.
    std::string diagnostics() const
    {
        std::string all;
        for (const CSyslogMessage& m : m_syslog.messages()) {
            all += "\n  " + m.text;
        }
        return all;
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    CLogTargetContainer m_container{m_dir.path(), false, nullptr};
};

TEST_F(CRemoteTargetTest, DeliversEveryFieldOverUdpAndTcpWithBothFramings)
{
    struct {
        CInput input;
        const char* address;
        const char* parameters;
    } const cases[] = {
        {CInput::UDP, "127.0.0.1", "transport=udp, host=127.0.0.1"},
        {CInput::TCP, "127.0.0.1", "host=127.0.0.1"},
        {CInput::TCP, "::1", "transport=tcp, framing=lf, host=[::1]"},
    };
    const std::string program = program_invocation_short_name;
    for (const auto& c : cases) {
        CTempDir dir;
        CRsyslogd rsyslogd(dir.path(), c.input, c.address);
        CLogTargetContainer container(m_dir.path(), false, nullptr);
        m_dir.write("vexlor.cfg", "target = " + remotePath() + ", " + c.parameters + ", port=" +
                                      std::to_string(rsyslogd.port()) + ", hostname=dev-01, facility=local3\n");
        container.onCfgUpdate();
        container.log(4711, 2, SECONDS, 7, VX_ERR, "main", "net", "poll", "link \"down\"\nagain");
        container.setAppname("player");
        container.log(4711, 0, SECONDS, 7, VX_ENTERLEAVE, "worker", "net", "", "leaving");
        m_dir.write("vexlor.cfg", "");
        container.onCfgUpdate();  // unloads the target, which drains its queue first

        ASSERT_TRUE(rsyslogd.waitForMessages(2)) << c.parameters;
        const std::vector<CReceived> got = rsyslogd.received();
        ASSERT_EQ(2u, got.size()) << c.parameters;
        // rsyslogd shows a line feed it received as #012; with framing=lf the target wrote that.
        EXPECT_EQ((std::vector<std::string>{"155", "1", TIMESTAMP, "dev-01", program, "4711", "net",
                                            "[vexlor@32473 component=\"net\" thread=\"main\" function=\"poll\" "
                                            "depth=\"2\"]",
                                            "link \"down\"#012again"}),
                  fields(got[0]))
            << c.parameters;
        EXPECT_EQ((std::vector<std::string>{"159", "1", TIMESTAMP, "dev-01", "player", "4711", "net",
                                            "[vexlor@32473 component=\"net\" thread=\"worker\" depth=\"0\"]",
                                            "leaving"}),
                  fields(got[1]))
            << c.parameters;
        EXPECT_EQ("<159>1 " + std::string(TIMESTAMP) +
                      " dev-01 player 4711 net [vexlor@32473 component=\"net\" thread=\"worker\" depth=\"0\"] leaving",
                  got[1].raw)
            << c.parameters;
    }
    EXPECT_EQ(0, m_syslog.countContaining("remote target"));
}

TEST_F(CRemoteTargetTest, DeliversOverTlsOnlyToAVerifiedReceiver)
{
    CTempDir dir;
    const CTestCertificates certificates(dir.path());
    CRsyslogd rsyslogd(dir.path(), CInput::TLS, "127.0.0.1", &certificates);
    const std::string common = ", transport=tls, port=" + std::to_string(rsyslogd.port()) + ", drain-ms=200";
    read("target = " + remotePath(0) + ", name=by-name, host=localhost, ca=" + certificates.ca + common + "\n" +
         "target = " + remotePath(1) + ", name=by-address, host=127.0.0.1, ca=" + certificates.ca + common + "\n" +
         "target = " + remotePath(2) + ", name=other-ca, host=127.0.0.1, ca=" + certificates.otherCa + common + "\n" +
         "target = " + remotePath(3) + ", name=not-its-address, host=::1, ca=" + certificates.ca + common + "\n" +
         "target = " + remotePath(4) + ", name=unchecked, host=::1, verify=0, ca=" + certificates.otherCa + common +
         "\n");
    EXPECT_EQ(1, m_syslog.count("remote target unchecked: verify=0: the receiver's certificate and name are not checked",
                                LOG_WARNING));
    log("over TLS", VX_WARN);
    ASSERT_TRUE(rsyslogd.waitForMessages(3));
    const std::string port = std::to_string(rsyslogd.port());
    EXPECT_TRUE(m_syslog.waitFor("remote target other-ca: cannot deliver to tls 127.0.0.1:" + port +
                                 " - certificate not accepted - self-signed certificate in certificate chain; records "
                                 "wait in the queue (10000 at most) and delivery is retried"))
        << diagnostics();
    EXPECT_TRUE(m_syslog.waitFor("remote target not-its-address: cannot deliver to tls [::1]:" + port +
                                 " - certificate not accepted - IP address mismatch; records wait in the queue (10000 "
                                 "at most) and delivery is retried"));
    read("");
    for (const char* name : {"other-ca", "not-its-address"}) {
        EXPECT_EQ(1, m_syslog.count("remote target " + std::string(name) + ": 1 records dropped at the end: tls " +
                                        (name[0] == 'o' ? "127.0.0.1:" : "[::1]:") + port +
                                        " did not take them within drain-ms=200",
                                    LOG_ERR));
    }
    const std::vector<CReceived> got = rsyslogd.received();
    ASSERT_EQ(3u, got.size());
    for (const CReceived& r : got) {
        EXPECT_EQ("12", r.pri);
        EXPECT_EQ("over TLS", r.msg);
    }
}

TEST_F(CRemoteTargetTest, OffersTheClientCertificate)
{
    CTempDir dir;
    const CTestCertificates certificates(dir.path());
    CRsyslogd rsyslogd(dir.path(), CInput::TLS, "127.0.0.1", &certificates, true);
    read("target = " + remotePath() + ", transport=tls, host=localhost, port=" + std::to_string(rsyslogd.port()) +
         ", ca=" + certificates.ca + ", cert=" + certificates.clientCert + ", key=" + certificates.clientKey + "\n");
    log("with a client certificate");
    read("");
    ASSERT_TRUE(rsyslogd.waitForMessages(1));
    EXPECT_EQ("with a client certificate", rsyslogd.received().at(0).msg);
}

TEST_F(CRemoteTargetTest, KeepsLoggingThroughAReceiverRestartAndCountsWhatItDropped)
{
    CTempDir dir;
    CRsyslogd rsyslogd(dir.path(), CInput::TCP, "127.0.0.1");
    const std::string destination = "tcp 127.0.0.1:" + std::to_string(rsyslogd.port());
    read("target = " + remotePath() + ", host=127.0.0.1, port=" + std::to_string(rsyslogd.port()) +
         ", queue=50, retry-ms=20, retry-max-ms=100\n");
    for (int i = 0; i < 10; ++i) {
        log("before " + std::to_string(i));
    }
    ASSERT_TRUE(rsyslogd.waitForMessages(10));

    rsyslogd.stop();
    long long slowestMs = 0;
    const int whileDown = 200;
    for (int i = 0; i < whileDown; ++i) {
        const Clock::time_point start = Clock::now();
        log("while down " + std::to_string(i));
        slowestMs = std::max(slowestMs, elapsedMs(start));
    }
    // A bound far above a normal call (microseconds): the call never waited for the network.
    EXPECT_LT(slowestMs, 1000);
    EXPECT_TRUE(m_syslog.waitFor("remote target remote: queue full (50 records): dropping new records until " +
                                 destination + " takes them"));
    rsyslogd.start();

    const long long dropped = countIn("remote target remote: ", " records dropped while the queue was full");
    ASSERT_GT(dropped, 0) << diagnostics();
    const std::size_t expected = 10 + static_cast<std::size_t>(whileDown - dropped);
    ASSERT_TRUE(rsyslogd.waitForMessages(expected));
    read("");  // nothing left to drain: nothing more arrives
    std::set<std::string> distinct;
    for (const CReceived& r : rsyslogd.received()) {
        distinct.insert(r.msg);
    }
    EXPECT_EQ(expected, rsyslogd.received().size());
    EXPECT_EQ(expected, distinct.size()) << "a record arrived twice";
    EXPECT_EQ(1, m_syslog.countContaining("remote target remote: cannot deliver to " + destination));
    EXPECT_EQ(1, m_syslog.countContaining("remote target remote: delivering to " + destination + " again after"));
    EXPECT_EQ(1, m_syslog.countContaining("records dropped"));
}

TEST_F(CRemoteTargetTest, UnloadAndExitEndWithinTheDrainTimeWhileTheReceiverIsDead)
{
    const int port = freePort("127.0.0.1", SOCK_STREAM);  // nothing listens there
    const std::string line = "target = " + remotePath() + ", host=127.0.0.1, port=" + std::to_string(port) +
                             ", drain-ms=300, retry-ms=50\n";
    read(line);
    for (int i = 0; i < 5; ++i) {
        log("never delivered");
    }
    Clock::time_point start = Clock::now();
    read("");
    // The margin is generous for a loaded machine; a hang would take forever.
    EXPECT_LT(elapsedMs(start), 300 + 3000);
    EXPECT_EQ(1, m_syslog.count("remote target remote: 5 records dropped at the end: tcp 127.0.0.1:" +
                                    std::to_string(port) + " did not take them within drain-ms=300",
                                LOG_ERR));

    // At process exit the container goes with the other static objects.
    m_dir.write("vexlor.cfg", line);
    start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        static CLogTargetContainer exiting(m_dir.path(), false, nullptr);
        exiting.onCfgUpdate();
        exiting.log(4711, 0, SECONDS, 7, VX_INFO, "main", "net", "", "never delivered");
        std::exit(0);
    }
    int status = -1;
    ASSERT_TRUE(waitUntil([&] { return waitpid(child, &status, WNOHANG) == child; }));
    EXPECT_LT(elapsedMs(start), 300 + 3000);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(CRemoteTargetTest, ForkChildSendsOnlyItsOwnRecords)
{
    // qemu-user 7.2 aborts a fork child of a multithreaded process that starts a thread, as the
    // child's first record does, and ThreadSanitizer does not support it: there the child only
    // unloads the target.
#if defined(__SANITIZE_THREAD__)
    const bool childLogs = false;
#else
    const bool childLogs = std::getenv("VEXLOR_TEST_EMULATOR") == nullptr;
#endif
    CTempDir dir;
    CRsyslogd rsyslogd(dir.path(), CInput::TCP, "127.0.0.1");
    rsyslogd.stop();  // the parent's records wait in its queue across the fork
    read("target = " + remotePath() + ", host=127.0.0.1, port=" + std::to_string(rsyslogd.port()) +
         ", retry-ms=20, retry-max-ms=50, drain-ms=10000\n");
    for (int i = 0; i < 5; ++i) {
        log("parent " + std::to_string(i));
    }
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    const pid_t child = fork();
    if (child == 0) {
        close(ready[1]);
        if (childLogs) {
            m_container.log(4712, 0, SECONDS, 7, VX_INFO, "main", "net", "", "child 0");
            m_container.log(4712, 0, SECONDS, 7, VX_INFO, "main", "net", "", "child 1");
        }
        char go;
        (void)!::read(ready[0], &go, 1);
        read("");  // drains the child's own records, not the parent's
        _exit(0);
    }
    close(ready[0]);
    rsyslogd.start();
    (void)!write(ready[1], "g", 1);
    close(ready[1]);
    int status = -1;
    ASSERT_TRUE(waitUntil([&] { return waitpid(child, &status, WNOHANG) == child; }));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    const std::size_t expected = childLogs ? 7 : 5;
    ASSERT_TRUE(rsyslogd.waitForMessages(expected));
    read("");
    std::multiset<std::string> got;
    for (const CReceived& r : rsyslogd.received()) {
        got.insert(r.procid + " " + r.msg);
    }
    std::multiset<std::string> want = {"4711 parent 0", "4711 parent 1", "4711 parent 2", "4711 parent 3",
                                       "4711 parent 4"};
    if (childLogs) {
        want.insert({"4712 child 0", "4712 child 1"});
    }
    EXPECT_EQ(want, got);
}

TEST_F(CRemoteTargetTest, RefusesParametersItCannotUse)
{
    struct {
        std::string parameters;
        std::string message;
    } const cases[] = {
        {"port=1", "remote target: host= is required (the receiver's name or address)"},
        {"host=h, transport=sctp", "remote target: transport=sctp: not one of tcp|udp|tls"},
        {"host=h, port=65536", "remote target: port=65536: not a whole number from 1 to 65535"},
        {"host=h, framing=crlf", "remote target: framing=crlf: not one of octet-counting|lf"},
        {"host=h, transport=udp, max-datagram=100", "remote target: max-datagram=100: not a whole number from 480 to 65507"},
        {"host=h, queue=0", "remote target: queue=0: not a whole number from 1 to 10000000"},
        {"host=h, sd-id=origin", "remote target: sd-id=origin: not an SD-ID of the form name@number (at most 32 "
                                 "printable characters, without '=', ']', '\"' or blanks)"},
        {"host=h, facility=kern", "remote target: unknown facility \"kern\" (user, daemon, local0 to local7)"},
        {"host=h, levels=loud", "remote target: levels=loud: \"loud\" is not a level (emerg ... debug, trace, 0-32, "
                                "a range such as emerg-warn, or all)"},
        {"host=h, transport=tls, ca=/nonexistent/ca.pem", "remote target: ca=/nonexistent/ca.pem: cannot load the "
                                                          "authorities - "},
        {"host=h, transport=tls, cert=/c.pem", "remote target: cert= and key= go together"},
    };
    for (const auto& c : cases) {
        m_syslog.clear();
        read("target = " + remotePath() + ", " + c.parameters + "\n");
        EXPECT_EQ(1, m_syslog.countContaining(c.message)) << c.parameters;
        EXPECT_EQ(1, m_syslog.countContaining("Unable to create LogTarget")) << c.parameters;
        read("");
    }
}

// The voluntary context switches of the process's thread named `name`; -1 when there is none.
long long contextSwitches(const std::string& name)
{
    DIR* tasks = opendir("/proc/self/task");
    long long switches = -1;
    while (dirent* task = tasks != nullptr ? readdir(tasks) : nullptr) {
        const std::string dir = std::string("/proc/self/task/") + task->d_name;
        std::string comm;
        std::getline(std::ifstream(dir + "/comm"), comm);
        if (comm != name) {
            continue;
        }
        std::ifstream status(dir + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0) {
                switches = std::stoll(line.substr(line.find(':') + 1));
            }
        }
    }
    if (tasks != nullptr) {
        closedir(tasks);
    }
    return switches;
}

TEST_F(CRemoteTargetTest, SenderThreadSleepsWhileIdle)
{
    CTempDir dir;
    CRsyslogd rsyslogd(dir.path(), CInput::TCP, "127.0.0.1");
    read("target = " + remotePath() + ", host=127.0.0.1, port=" + std::to_string(rsyslogd.port()) + "\n");
    log("one");
    ASSERT_TRUE(rsyslogd.waitForMessages(1));
    const long long before = contextSwitches("vexlor-remote");
    if (before < 0) {
        GTEST_SKIP() << "no thread name in /proc (emulated /proc)";
    }
    usleep(300 * 1000);
    // A thread that polled on a timer would have woken up in these 300 ms.
    EXPECT_EQ(before, contextSwitches("vexlor-remote"));
    log("two");
    EXPECT_TRUE(rsyslogd.waitForMessages(2));
}

}  // namespace
