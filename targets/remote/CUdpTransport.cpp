// The UDP transport.
#include "CUdpTransport.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

#include "connectSocket.h"

CUdpTransport::CUdpTransport(CWaiter& waiter, std::string host, int port)
    : m_waiter(waiter)
    , m_host(std::move(host))
    , m_port(port)
{
}

bool CUdpTransport::open(Clock::time_point limit, std::string& error)
{
    Clock::duration connectTime{};
    m_fd = connectSocket(m_host, m_port, SOCK_DGRAM, m_resolver, m_waiter, limit, error, connectTime);
    m_framed = 0;
    m_sent = 0;
    return m_fd >= 0;
}

std::uint64_t CUdpTransport::frame(std::string_view message, std::string& out)
{
    out += message;
    return ++m_framed;
}

long CUdpTransport::write(const char* data, std::size_t size, std::string& error)
{
    for (int attempt = 0; attempt < 2; ++attempt) {
        const ssize_t sent = ::send(m_fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            ++m_sent;
            return static_cast<long>(size);
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return 0;
        }
        // ECONNREFUSED reports an earlier datagram that met a closed port; this one was not sent.
        // Such losses cannot be counted: try this one once more and go on.
        if (errno != ECONNREFUSED && errno != EINTR) {
            break;
        }
    }
    error = std::strerror(errno);
    return -1;
}

void CUdpTransport::abandon()
{
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}
