// The remote target sending to a real rsyslogd on loopback: every field over UDP, TCP (both
// framings) and RELP, TLS and the relay's certificate, fork children. The client's certificate is
// in CRemoteFaultsTest, a relay killed and restarted in CRemoteRelpTest.
#include <set>
#include <syslog.h>
#include <unistd.h>

#include "CRsyslogd.h"
#include "CTargetFixture.h"

namespace {

using CInput = CRsyslogd::CInput;
using CRemoteTargetTest = CTargetFixture;

const char TIMESTAMP[] = "2099-01-01T00:00:00.000007Z";

std::string remotePath(int variant = 0) { return pluginPath(VEXLOR_TEST_TARGET_REMOTE, variant); }

TEST_F(CRemoteTargetTest, DeliversEveryFieldOverEachTransportWithSequenceNumbersWhereAskedFor)
{
    struct {
        CInput input;
        const char* address;
        const char* parameters;
        bool numbered;  // sequence=1, the default over RELP
    } const cases[] = {
        {CInput::UDP, "127.0.0.1", "transport=udp, host=127.0.0.1, sequence=1", true},
        {CInput::TCP, "127.0.0.1", "host=127.0.0.1", false},
        {CInput::TCP, "::1", "transport=tcp, framing=lf, host=[::1]", false},
        {CInput::RELP, "127.0.0.1", "transport=relp, host=127.0.0.1", true},
    };
    const std::string sd = "[vexlor@32473 component=\"net\" thread=\"";
    for (const auto& c : cases) {
        CTempDir dir;
        CRsyslogd rsyslogd(dir.path(), c.input, c.address);
        m_container.setAppname("");  // the program's name again
        read("target = " + remotePath() + ", " + c.parameters + ", port=" + std::to_string(rsyslogd.port()) +
             ", hostname=dev-01, facility=local3\n");
        m_container.log(4711, 2, SECONDS, 7, VX_ERR, "main", "net", "poll", "link \"down\"\nagain");
        m_container.setAppname("player");
        m_container.log(4711, 0, SECONDS, 7, VX_ENTERLEAVE, "worker", "net", "", "leaving");
        read("");  // unloads the target, which drains its queue first

        ASSERT_TRUE(rsyslogd.waitForMessages(2)) << c.parameters;
        const std::vector<CReceived> got = rsyslogd.received();
        ASSERT_EQ(2u, got.size()) << c.parameters;
        const auto meta = [&](int n) {
            return c.numbered ? "[meta sequenceId=\"" + std::to_string(n) + "\"]" : std::string();
        };
        // rsyslogd shows a line feed it received as #012; with framing=lf the target wrote that.
        const std::string first = "<155>1 " + std::string(TIMESTAMP) + " dev-01 " + program_invocation_short_name +
            " 4711 net " + sd + "main\" function=\"poll\" depth=\"2\"]" + meta(1) + " link \"down\"#012again";
        const std::string second = "<159>1 " + std::string(TIMESTAMP) + " dev-01 player 4711 net " + sd +
            "worker\" depth=\"0\"]" + meta(2) + " leaving";
        EXPECT_EQ(first, got[0].fields()) << c.parameters;
        EXPECT_EQ(second, got[1].fields()) << c.parameters;
        EXPECT_EQ(second, got[1].raw) << c.parameters;
    }
    EXPECT_EQ(0, m_syslog.countContaining("remote target"));
}

TEST_F(CRemoteTargetTest, DeliversOverTlsOnlyToAVerifiedReceiver)
{
    CTempDir dir;
    const CTestCertificates certificates(dir.path());
    CRsyslogd rsyslogd(dir.path(), CInput::TLS, "127.0.0.1", {&certificates, "anon", ""});
    const std::string port = std::to_string(rsyslogd.port());
    const std::string common = ", transport=tls, port=" + port + ", drain-ms=200, ca=";
    read("target = " + remotePath(0) + ", name=by-name, host=localhost" + common + certificates.ca + "\n" +
         "target = " + remotePath(1) + ", name=by-address, host=127.0.0.1" + common + certificates.ca + "\n" +
         "target = " + remotePath(2) + ", name=other-ca, host=127.0.0.1" + common + certificates.otherCa + "\n" +
         "target = " + remotePath(3) + ", name=not-its-address, host=::1" + common + certificates.ca + "\n" +
         "target = " + remotePath(4) + ", name=unchecked, host=::1, verify=0" + common + certificates.otherCa + "\n");
    EXPECT_EQ(1,
              m_syslog.count("remote target unchecked: verify=0: the receiver's certificate and name are not checked",
                             LOG_WARNING));
    log(VX_WARN, "over TLS");
    ASSERT_TRUE(rsyslogd.waitForMessages(3));
    const std::string retried =
        "; records wait in the queue (10000 records or 16777216 bytes at most) and delivery is retried";
    EXPECT_TRUE(m_syslog.waitFor("remote target other-ca: cannot deliver to tls 127.0.0.1:" + port +
                                 " - certificate not accepted - self-signed certificate in certificate chain" +
                                 retried));
    EXPECT_TRUE(m_syslog.waitFor("remote target not-its-address: cannot deliver to tls [::1]:" + port +
                                 " - certificate not accepted - IP address mismatch" + retried));
    read("");
    for (const std::string where : {"other-ca: 1 records dropped at the end: tls 127.0.0.1:",
                                    "not-its-address: 1 records dropped at the end: tls [::1]:"}) {
        EXPECT_TRUE(m_syslog.waitFor("remote target " + where + port + " did not take them within drain-ms=200"));
    }
    const std::vector<CReceived> got = rsyslogd.received();
    ASSERT_EQ(3u, got.size());
    for (const CReceived& r : got) {
        EXPECT_EQ("12 over TLS", r.pri + " " + r.msg);
    }
}

// The parent's records wait in its queue across the fork: the child sends only its own.
TEST_F(CRemoteTargetTest, ForkChildSendsOnlyItsOwnRecords)
{
    CTempDir dir;
    CRsyslogd rsyslogd(dir.path(), CInput::TCP, "127.0.0.1");
    rsyslogd.stop();
    read("target = " + remotePath() + ", host=127.0.0.1, port=" + std::to_string(rsyslogd.port()) +
         ", retry-ms=20, retry-max-ms=50, drain-ms=10000\n");
    std::multiset<std::string> want = {"4711 parent 0", "4711 parent 1"};
    log(VX_INFO, "parent 0", "", 4711);
    log(VX_INFO, "parent 1", "", 4711);
    const pid_t child = forkWhenOthersSleep();
    if (child == 0) {
        for (int i = 0; childMayStartThreads() && i < 2; ++i) {
            log(VX_INFO, "child " + std::to_string(i), "", 4712);
        }
        // The child's own records arrive, not the parent's (which its thread would send first).
        waitUntil([&] {
            std::size_t children = 0;
            for (const CReceived& r : rsyslogd.received()) {
                children += r.procid == "4712" ? 1 : 0;
            }
            return children == 2 || !childMayStartThreads();
        });
        read("");
        _exit(0);
    }
    rsyslogd.start();
    expectCleanExit(child);
    if (childMayStartThreads()) {
        want.insert({"4712 child 0", "4712 child 1"});
    }
    ASSERT_TRUE(rsyslogd.waitForMessages(want.size()));
    read("");
    std::multiset<std::string> got;
    for (const CReceived& r : rsyslogd.received()) {
        got.insert(r.procid + " " + r.msg);
    }
    EXPECT_EQ(want, got);
}

}  // namespace
