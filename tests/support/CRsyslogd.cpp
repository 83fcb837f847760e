// The test rsyslogd: configuration, start, stop and reading what it wrote.
#include "CRsyslogd.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <netdb.h>
#include <netinet/in.h>
#include <sstream>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CTempDir.h"
#include "waitUntil.h"

namespace {

// Fields separated by a tab: rsyslogd escapes control characters in what it received, so a
// tab in a line is always ours.
const char TEMPLATE[] =
    "%pri%\t%protocol-version%\t%timereported:::date-rfc3339%\t%hostname%\t%app-name%\t%procid%\t%msgid%\t"
    "%structured-data%\t%msg%\t%rawmsg%\n";

// Binds (or connects) a new socket of `type` to `address`:`port`; returns 0 or the errno of the
// failure, and in `port` the port the socket had.
int tryAddress(const std::string& address, int& port, int type, bool connectIt)
{
    const addrinfo hints{AI_NUMERICHOST | AI_NUMERICSERV, AF_UNSPEC, type, 0, 0, nullptr, nullptr, nullptr};
    addrinfo* found = nullptr;
    getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found);
    const int fd = socket(found->ai_family, type | SOCK_CLOEXEC, 0);
    const int result = (connectIt ? connect : bind)(fd, found->ai_addr, found->ai_addrlen) == 0 ? 0 : errno;
    freeaddrinfo(found);
    sockaddr_storage bound{};
    socklen_t length = sizeof bound;
    getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length);
    port = ntohs(reinterpret_cast<sockaddr_in*>(&bound)->sin_port);  // where sin6_port lies too
    close(fd);
    return result;
}

void run(const std::string& command)
{
    if (std::system((command + " >/dev/null 2>&1").c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
}

}  // namespace

CTestCertificates::CTestCertificates(const std::string& directory)
    : ca(directory + "/ca.pem")
    , serverCert(directory + "/server.pem")
    , serverKey(directory + "/server.key")
    , clientCert(directory + "/client.pem")
    , clientKey(directory + "/client.key")
    , otherCa(directory + "/other-ca.pem")
{
    const std::string d = directory + "/";
    // Elliptic-curve keys: made in milliseconds, where RSA keys take noticeable time.
    const std::string newKey = "openssl req -x509 -days 2 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes ";
    const std::string signedByCa = " -CA " + ca + " -CAkey " + d + "ca.key";
    run(newKey + "-subj /CN=vexlor-test-ca -keyout " + d + "ca.key -out " + ca);
    run(newKey + "-subj /CN=vexlor-other-ca -keyout " + d + "other-ca.key -out " + otherCa);
    run(newKey + "-subj /CN=localhost -addext subjectAltName=DNS:localhost,IP:127.0.0.1 -keyout " + serverKey +
        " -out " + serverCert + signedByCa);
    run(newKey + "-subj /CN=vexlor-test-client -keyout " + clientKey + " -out " + clientCert + signedByCa);
}

CRsyslogd::CRsyslogd(const std::string& directory, CInput input, const std::string& address,
                     const CTestCertificates* tls)
    : m_directory(directory)
    , m_input(input)
    , m_address(address)
    , m_port(0)
{
    tryAddress(address, m_port, input == CInput::UDP ? SOCK_DGRAM : SOCK_STREAM, false);
    std::ostringstream config;
    config << "global(workDirectory=\"" << directory << "\"";
    if (input == CInput::TLS) {
        config << " defaultNetstreamDriverCAFile=\"" << tls->ca << "\" defaultNetstreamDriverCertFile=\""
               << tls->serverCert << "\" defaultNetstreamDriverKeyFile=\"" << tls->serverKey << "\"";
    }
    config << ")\ntemplate(name=\"fields\" type=\"string\" string=\"" << TEMPLATE << "\")\n";
    // Direct: the input writes each message before it answers a RELP client, so what rsyslogd
    // confirmed is in the file even when it is killed.
    config << "ruleset(name=\"remote\" queue.type=\"Direct\") { action(type=\"omfile\" file=\"" << directory
           << "/received.txt\" template=\"fields\") }\n";
    const bool relp = input == CInput::RELP || input == CInput::RELP_TLS;
    const char* module = input == CInput::UDP ? "imudp" : relp ? "imrelp" : "imtcp";
    config << "module(load=\"" << module << "\"";
    std::string settings;  // of each input
    if (input == CInput::TLS) {
        config << " streamDriver.name=\"ossl\" streamDriver.mode=\"1\" streamDriver.authMode=\"x509/name\" "
                  "permittedPeer=[\"vexlor-test-client\"]";
    } else if (input == CInput::RELP_TLS) {
        config << " tls.tlslib=\"openssl\"";
        settings = " tls=\"on\" tls.cacert=\"" + tls->ca + "\" tls.mycert=\"" + tls->serverCert +
            "\" tls.myprivkey=\"" + tls->serverKey +
            "\" tls.authMode=\"name\" tls.permittedPeer=[\"vexlor-test-client\"]";
    }
    config << ")\n";
    // The same port on both loopback addresses, so that host names (localhost) reach it whichever
    // address the resolver gives first.
    for (const char* on : {"127.0.0.1", "::1"}) {
        config << "input(type=\"" << module << "\" address=\"" << on << "\" port=\"" << m_port
               << "\" ruleset=\"remote\"" << settings << ")\n";
    }
    writeFile(directory + "/rsyslog.conf", config.str());
    start();
}

CRsyslogd::~CRsyslogd() { stop(); }

void CRsyslogd::start()
{
    const std::string config = m_directory + "/rsyslog.conf";
    const std::string pidFile = m_directory + "/rsyslogd.pid";
    const std::string output = m_directory + "/rsyslogd.out";
    m_pid = fork();
    if (m_pid == 0) {
        freopen(output.c_str(), "a", stdout);
        freopen(output.c_str(), "a", stderr);
        execlp("rsyslogd", "rsyslogd", "-n", "-f", config.c_str(), "-i", pidFile.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    // Over UDP the port is taken once it listens; over TCP a connection is accepted.
    const int type = m_input == CInput::UDP ? SOCK_DGRAM : SOCK_STREAM;
    const auto listening = [this, type] {
        int port = m_port;  // tryAddress overwrites it
        return tryAddress(m_address, port, type, type == SOCK_STREAM) == (type == SOCK_STREAM ? 0 : EADDRINUSE);
    };
    if (!waitUntil(listening)) {
        throw std::runtime_error("rsyslogd does not listen; see " + output);
    }
}

void CRsyslogd::stop(int signal)
{
    if (m_pid > 0) {
        kill(m_pid, signal);
        kill(m_pid, SIGCONT);  // one that a test stopped takes its signal only once it runs
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }
}

void CRsyslogd::signal(int signal) const
{
    // The stop of a child is reported once the last of its threads has stopped.
    if (m_pid > 0 && kill(m_pid, signal) == 0 && signal == SIGSTOP) {
        waitpid(m_pid, nullptr, WUNTRACED);
    }
}

std::vector<CReceived> CRsyslogd::received() const
{
    std::vector<CReceived> messages;
    std::istringstream lines(readFile(m_directory + "/received.txt"));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream in(line);
        CReceived r;
        for (std::string* field : {&r.pri, &r.version, &r.timestamp, &r.hostname, &r.appname, &r.procid, &r.msgid,
                                   &r.structuredData, &r.msg, &r.raw}) {
            std::getline(in, *field, '\t');
        }
        messages.push_back(r);
    }
    return messages;
}

bool CRsyslogd::waitForMessages(std::size_t count) const
{
    return waitUntil([&] { return received().size() >= count; });
}
