// RFC 6587: syslog over a TCP stream, each message framed by its length in octets (the default)
// or ended by a line feed, with line feeds inside the message escaped as "#012".
#pragma once

#include "CTransport.h"

enum class CFraming { OCTET_COUNTING, LINE_FEED };

// Appends the framed message to `out`.
void appendFrame(CFraming framing, const std::string& message, std::string& out);

class CTcpTransport final : public CTransport {
public:
    CTcpTransport(CWaiter& waiter, std::string host, int port, CFraming framing);
    ~CTcpTransport() override { closeFd(); }

    bool open(CWaiter::Clock::time_point limit, std::string& error) override;
    bool send(const std::string& message, std::string& error) override;
    bool peerClosed() override;
    void close() override { closeFd(); }
    void abandon() override { closeFd(); }

private:
    const std::string m_host;
    const int m_port;
    const CFraming m_framing;
    std::string m_frame;  // reused for every message
};

// For the stream transports: true when the peer of the connected stream socket `fd` has closed
// it or the connection failed. Data the peer sent is read and ignored.
bool streamPeerClosed(int fd);
