// The remote target sending to a real rsyslogd on loopback: every field over each transport, TLS
// between peers that verify each other (and relays that refuse), fork children. A relay killed and
// restarted is in CRemoteRelpTest, relays failing in other ways in CRemoteFaultsTest.
#include <algorithm>
#include <set>
#include <syslog.h>
#include <unistd.h>

#include "CRemoteFixture.h"
#include "CRsyslogd.h"

namespace {

using CInput = CRsyslogd::CInput;
using CRemoteTargetTest = CRemoteFixture;

const char TIMESTAMP[] = "2099-01-01T00:00:00.000007Z";

TEST_F(CRemoteTargetTest, DeliversEveryFieldOverEachTransportWithSequenceNumbersWhereAskedFor)
{
    const CTestCertificates pki(m_dir.path());
    const std::string tls = ", host=localhost, ca=" + pki.ca + ", cert=" + pki.clientCert + ", key=" + pki.clientKey;
    const struct {
        CInput input;
        const char* address;
        std::string parameters;
        bool numbered;  // sequence=1, the default over RELP
    } cases[] = {
        {CInput::UDP, "127.0.0.1", "transport=udp, host=127.0.0.1, sequence=1", true},
        {CInput::TCP, "127.0.0.1", "host=127.0.0.1", false},
        {CInput::TCP, "::1", "transport=tcp, framing=lf, host=[::1]", false},
        {CInput::RELP, "127.0.0.1", "transport=relp, host=127.0.0.1", true},
        {CInput::RELP_TLS, "127.0.0.1", "transport=relp-tls" + tls, true},
    };
    const std::string sd = "[vexlor@32473 component=\"net\" thread=\"";
    int variant = 0;
    for (const auto& c : cases) {
        CTempDir dir;
        CRsyslogd rsyslogd(dir.path(), c.input, c.address, &pki);
        m_container.setAppname("");  // the program's name again
        read("target = " + plugin(variant++) + ", " + c.parameters + ", port=" + std::to_string(rsyslogd.port()) +
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

// Over TLS and RELP over TLS to relays that take only the client certificate they name: records
// arrive where both sides verify each other (the relay by name or address, or not at all with
// verify=0, which warns). Where the relay's certificate does not verify, or the relay refuses the
// client's (TLS 1.3 ends the client's handshake before the relay checked it: the target waits for
// that verdict instead of writing into the refused connection), one diagnostic names the cause
// and every record is counted as dropped at the end.
TEST_F(CRemoteTargetTest, DeliversOverTlsOnlyBetweenPeersThatVerifyEachOther)
{
    CTempDir tlsDir, relpDir;
    const CTestCertificates pki(tlsDir.path());
    CRsyslogd tls(tlsDir.path(), CInput::TLS, "127.0.0.1", &pki);
    CRsyslogd relp(relpDir.path(), CInput::RELP_TLS, "127.0.0.1", &pki);
    const std::string client = ", cert=" + pki.clientCert + ", key=" + pki.clientKey + ", ca=";
    const struct {
        const char* name;
        const char* host;  // as the diagnostics show it
        std::string parameters;
        std::string refusal;  // empty: it delivers
    } cases[] = {
        {"by-name", "localhost", client + pki.ca, ""},
        {"by-address", "127.0.0.1", client + pki.ca, ""},
        {"unchecked", "[::1]", ", verify=0" + client + pki.otherCa, ""},
        {"other-ca", "127.0.0.1", client + pki.otherCa,
         "certificate not accepted - self-signed certificate in certificate chain"},
        {"not-its-address", "[::1]", client + pki.ca, "certificate not accepted - IP address mismatch"},
        {"anonymous", "localhost", ", ca=" + pki.ca,
         "the relay refused the connection with the TLS alert \"certificate required\""},
    };
    const int records = 100;
    int variant = 0;
    for (const auto& [relay, transport] : {std::pair(&tls, "tls"), std::pair(&relp, "relp-tls")}) {
        const std::string port = std::to_string(relay->port());
        std::string lines;
        for (const auto& c : cases) {
            lines += "target = " + plugin(variant++) + ", name=" + c.name + ", transport=" + transport +
                ", host=" + c.host + ", port=" + port + ", drain-ms=300" + c.parameters + "\n";
        }
        m_syslog.clear();
        read(lines);
        logNumbered(0, records);
        ASSERT_TRUE(relay->waitForMessages(3 * records)) << transport;
        read("");
        for (const auto& c : cases) {
            if (!c.refusal.empty()) {
                EXPECT_EQ(records, droppedAtTheEnd("remote target " + std::string(c.name))) << transport;
                EXPECT_EQ(1,
                          m_syslog.countContaining(std::string(c.name) + ": cannot deliver to " + transport + " " +
                                                   c.host + ":" + port + " - " + c.refusal + ";"));
            }
        }
        EXPECT_EQ(1, m_syslog.countStarting("remote target unchecked: verify=0: ", LOG_WARNING));
        EXPECT_EQ(0, m_syslog.countContaining("delivering to"));
        EXPECT_EQ(static_cast<std::size_t>(3 * records), relay->received().size());
    }
}

// The parent's records wait in its queue across the fork: the child sends only its own.
TEST_F(CRemoteTargetTest, ForkChildSendsOnlyItsOwnRecords)
{
    CTempDir dir;
    CRsyslogd rsyslogd(dir.path(), CInput::TCP, "127.0.0.1");
    rsyslogd.stop();
    read("target = " + plugin(0) + ", host=127.0.0.1, port=" + std::to_string(rsyslogd.port()) +
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
            const std::vector<CReceived> got = rsyslogd.received();
            const auto ours = [](const CReceived& r) { return r.procid == "4712"; };
            return !childMayStartThreads() || std::count_if(got.begin(), got.end(), ours) == 2;
        });
        read("");
        _exit(0);
    }
    rsyslogd.start();
    EXPECT_EQ(0, reapChild(child, std::chrono::seconds(20)));  // a clean exit
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
