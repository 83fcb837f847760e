// The UDP transport.
#include "CUdpTransport.h"

#include <cerrno>
#include <sys/socket.h>

#include "connectSocket.h"

CUdpTransport::CUdpTransport(CWaiter& waiter, std::string host, int port)
    : CTransport(waiter)
    , m_host(std::move(host))
    , m_port(port)
{
}

bool CUdpTransport::open(CWaiter::Clock::time_point limit, std::string& error)
{
    m_fd = connectSocket(m_host, m_port, SOCK_DGRAM, m_waiter, limit, error);
    return m_fd >= 0;
}

bool CUdpTransport::send(const std::string& message, std::string& error)
{
    if (sendAll(message.data(), message.size(), error)) {
        return true;
    }
    // ECONNREFUSED reports an earlier datagram that met a closed port; this one was not sent.
    // Such losses cannot be counted: try this one once more and go on.
    return errno == ECONNREFUSED && sendAll(message.data(), message.size(), error);
}
