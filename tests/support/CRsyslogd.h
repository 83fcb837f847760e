// A real rsyslogd for tests of the remote target: started on loopback with a configuration of its
// own in a test directory (work directory, pid file, free ports; no local socket, no /dev/log),
// writing every RFC 5424 field it parsed, and the raw message, one line per message.
#pragma once

#include <csignal>
#include <string>
#include <sys/types.h>
#include <vector>

// What rsyslogd made of one message.
struct CReceived {
    std::string pri, version, timestamp, hostname, appname, procid, msgid, structuredData, msg, raw;
    // The parsed fields put together again in RFC 5424's order, to compare with what was sent.
    std::string fields() const
    {
        return "<" + pri + ">" + version + " " + timestamp + " " + hostname + " " + appname + " " + procid + " " +
            msgid + " " + structuredData + " " + msg;
    }
};

// The files of a small test PKI, made with the openssl command: a CA, a server certificate for
// localhost and 127.0.0.1 (not ::1), a client certificate (vexlor-test-client), and a second CA.
struct CTestCertificates {
    explicit CTestCertificates(const std::string& directory);
    std::string ca, serverCert, serverKey, clientCert, clientKey, otherCa;
};

class CRsyslogd {
public:
    enum class CInput { UDP, TCP, TLS, RELP, RELP_TLS };

    // Listens for `input` at a free port of `address` (127.0.0.1 or ::1), and at the same port of
    // the other loopback address. TLS and RELP_TLS use the server's files of `tls` and take only
    // clients with its client certificate.
    CRsyslogd(const std::string& directory, CInput input, const std::string& address,
              const CTestCertificates* tls = nullptr);
    ~CRsyslogd();  // stops it
    CRsyslogd(const CRsyslogd&) = delete;
    CRsyslogd& operator=(const CRsyslogd&) = delete;

    int port() const { return m_port; }
    // Starts it and waits until it listens; stop() ends it (SIGTERM, or SIGKILL for a crash) and
    // waits for its exit.
    void start();
    void stop(int signal = SIGTERM);
    // Sends `signal`; after SIGSTOP, once every thread has stopped (its kernel still takes some).
    void signal(int signal) const;

    // Every message received so far (the file is kept across restarts).
    std::vector<CReceived> received() const;
    // Waits (as a hang guard only) until at least `count` messages arrived.
    bool waitForMessages(std::size_t count) const;

private:
    std::string m_directory;
    CInput m_input;
    std::string m_address;
    int m_port;
    pid_t m_pid = -1;
};
