// The TCP transport and its framings.
#include "CTcpTransport.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

#include "connectSocket.h"

void appendFrame(CFraming framing, const std::string& message, std::string& out)
{
    if (framing == CFraming::OCTET_COUNTING) {
        out += std::to_string(message.size());
        out += ' ';
        out += message;
        return;
    }
    for (const char c : message) {
        if (c == '\n') {
            out += "#012";
        } else {
            out += c;
        }
    }
    out += '\n';
}

bool streamPeerClosed(int fd)
{
    pollfd watched{fd, POLLIN | POLLRDHUP, 0};
    if (poll(&watched, 1, 0) <= 0) {
        return false;
    }
    if ((watched.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
        return true;
    }
    char ignored[512];
    const ssize_t got = recv(fd, ignored, sizeof ignored, MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}

CTcpTransport::CTcpTransport(CWaiter& waiter, std::string host, int port, CFraming framing)
    : CTransport(waiter)
    , m_host(std::move(host))
    , m_port(port)
    , m_framing(framing)
{
}

bool CTcpTransport::open(CWaiter::Clock::time_point limit, std::string& error)
{
    m_fd = connectSocket(m_host, m_port, SOCK_STREAM, m_waiter, limit, error);
    return m_fd >= 0;
}

bool CTcpTransport::send(const std::string& message, std::string& error)
{
    m_frame.clear();
    appendFrame(m_framing, message, m_frame);
    return sendAll(m_frame.data(), m_frame.size(), error);
}

bool CTcpTransport::peerClosed() { return streamPeerClosed(m_fd); }
