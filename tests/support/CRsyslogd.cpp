// The test rsyslogd: configuration, start, stop and reading what it wrote.
#include "CRsyslogd.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
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

// The socket address of `address` (IPv4 or IPv6 text) and `port`; returns its length.
socklen_t socketAddress(sockaddr_storage& storage, const std::string& address, int port)
{
    storage = sockaddr_storage{};
    if (address.find(':') != std::string::npos) {
        auto* in6 = reinterpret_cast<sockaddr_in6*>(&storage);
        in6->sin6_family = AF_INET6;
        in6->sin6_port = htons(static_cast<uint16_t>(port));
        inet_pton(AF_INET6, address.c_str(), &in6->sin6_addr);
        return sizeof *in6;
    }
    auto* in4 = reinterpret_cast<sockaddr_in*>(&storage);
    in4->sin_family = AF_INET;
    in4->sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address.c_str(), &in4->sin_addr);
    return sizeof *in4;
}

bool bindAddress(int fd, const std::string& address, int port)
{
    sockaddr_storage storage;
    const socklen_t length = socketAddress(storage, address, port);
    return bind(fd, reinterpret_cast<sockaddr*>(&storage), length) == 0;
}

int familyOf(const std::string& address) { return address.find(':') != std::string::npos ? AF_INET6 : AF_INET; }

void run(const std::string& command)
{
    if (std::system((command + " >/dev/null 2>&1").c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
}

}  // namespace

int freePort(const std::string& address, int type)
{
    const int fd = socket(familyOf(address), type | SOCK_CLOEXEC, 0);
    bindAddress(fd, address, 0);
    sockaddr_storage bound{};
    socklen_t length = sizeof bound;
    getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length);
    close(fd);
    return ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port
                                             : reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
}

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
    const std::string newKey = "openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes ";
    writeFile(d + "server.ext", "subjectAltName=DNS:localhost,IP:127.0.0.1\n");
    run(newKey + "-x509 -days 2 -subj /CN=vexlor-test-ca -keyout " + d + "ca.key -out " + ca);
    run(newKey + "-x509 -days 2 -subj /CN=vexlor-other-ca -keyout " + d + "other-ca.key -out " + otherCa);
    run(newKey + "-subj /CN=localhost -keyout " + serverKey + " -out " + d + "server.csr");
    run("openssl x509 -req -days 2 -in " + d + "server.csr -CA " + ca + " -CAkey " + d + "ca.key -CAcreateserial -extfile " +
        d + "server.ext -out " + serverCert);
    run(newKey + "-subj /CN=vexlor-test-client -keyout " + clientKey + " -out " + d + "client.csr");
    run("openssl x509 -req -days 2 -in " + d + "client.csr -CA " + ca + " -CAkey " + d + "ca.key -CAcreateserial -out " +
        clientCert);
}

CRsyslogd::CRsyslogd(const std::string& directory, CInput input, const std::string& address,
                     const CTestCertificates* certificates, bool requireClientCert)
    : m_directory(directory)
    , m_input(input)
    , m_address(address)
    , m_port(freePort(address, input == CInput::UDP ? SOCK_DGRAM : SOCK_STREAM))
{
    std::ostringstream config;
    config << "global(workDirectory=\"" << directory << "\"";
    if (input == CInput::TLS) {
        config << " defaultNetstreamDriverCAFile=\"" << certificates->ca << "\" defaultNetstreamDriverCertFile=\""
               << certificates->serverCert << "\" defaultNetstreamDriverKeyFile=\"" << certificates->serverKey << "\"";
    }
    config << ")\n";
    config << "template(name=\"fields\" type=\"string\" string=\"" << TEMPLATE << "\")\n";
    config << "ruleset(name=\"remote\") { action(type=\"omfile\" file=\"" << directory
           << "/received.txt\" template=\"fields\") }\n";
    if (input == CInput::UDP) {
        config << "module(load=\"imudp\")\ninput(type=\"imudp\"";
    } else if (input == CInput::TCP) {
        config << "module(load=\"imtcp\")\ninput(type=\"imtcp\"";
    } else {
        config << "module(load=\"imtcp\" streamDriver.name=\"ossl\" streamDriver.mode=\"1\" streamDriver.authMode=\""
               << (requireClientCert ? "x509/certvalid" : "anon") << "\")\ninput(type=\"imtcp\"";
    }
    config << " address=\"" << address << "\" port=\"" << m_port << "\" ruleset=\"remote\")\n";
    // The same port on the other loopback address too, so that host names (localhost) reach it
    // whichever address the resolver gives first.
    const std::string other = familyOf(address) == AF_INET6 ? "127.0.0.1" : "::1";
    config << "input(type=\"" << (input == CInput::UDP ? "imudp" : "imtcp") << "\" address=\"" << other
           << "\" port=\"" << m_port << "\" ruleset=\"remote\")\n";
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
    if (!waitUntil([this] { return listening(); })) {
        throw std::runtime_error("rsyslogd does not listen; see " + output);
    }
}

void CRsyslogd::stop()
{
    if (m_pid > 0) {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }
}

bool CRsyslogd::listening() const
{
    const int type = m_input == CInput::UDP ? SOCK_DGRAM : SOCK_STREAM;
    const int fd = socket(familyOf(m_address), type | SOCK_CLOEXEC, 0);
    bool taken = false;
    if (type == SOCK_DGRAM) {
        taken = !bindAddress(fd, m_address, m_port) && errno == EADDRINUSE;
    } else {
        sockaddr_storage storage;
        const socklen_t length = socketAddress(storage, m_address, m_port);
        taken = connect(fd, reinterpret_cast<sockaddr*>(&storage), length) == 0;
    }
    close(fd);
    return taken;
}

std::vector<CReceived> CRsyslogd::received() const
{
    std::vector<CReceived> messages;
    std::istringstream lines(readFile(m_directory + "/received.txt"));
    std::string line;
    while (std::getline(lines, line)) {
        std::vector<std::string> fields;
        std::size_t start = 0;
        for (std::size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1) {
            fields.push_back(line.substr(start, tab - start));
        }
        fields.push_back(line.substr(start));
        fields.resize(10);
        messages.push_back(CReceived{fields[0], fields[1], fields[2], fields[3], fields[4], fields[5], fields[6],
                                     fields[7], fields[8], fields[9]});
    }
    return messages;
}

bool CRsyslogd::waitForMessages(std::size_t count) const
{
    return waitUntil([&] { return received().size() >= count; });
}
