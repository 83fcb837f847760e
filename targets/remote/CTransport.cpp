// What the socket transports share: the complete non-blocking write.
#include "CTransport.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

bool CTransport::sendAll(const char* data, std::size_t size, std::string& error)
{
    while (size > 0) {
        const ssize_t sent = ::send(m_fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            data += sent;
            size -= static_cast<std::size_t>(sent);
            continue;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            error = std::strerror(errno);
            return false;
        }
        // A slow receiver: wait as long as it takes, except past the stop deadline.
        m_waiter.wait(m_fd, POLLOUT, CWaiter::Clock::time_point::max());
        if (m_waiter.expired()) {
            error = "the receiver takes nothing more before the drain ends";
            return false;
        }
    }
    return true;
}

void CTransport::closeFd()
{
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}
