// What both byte streams share: the TCP socket, its acknowledgements and the verdict time.
#include "CByteStream.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "connectSocket.h"

namespace {

using std::chrono::milliseconds;

// The relay's verdict comes about one round trip after the handshake; a relay at its session
// limit closes as soon as it gets to accept. Bounds for the wait: not too short for a busy
// relay, not so long that a silent one delays every connection noticeably.
constexpr milliseconds VERDICT_MIN{50};
constexpr milliseconds VERDICT_MAX{1000};

}  // namespace

bool CByteStream::connectTcp(Clock::time_point limit, std::string& error)
{
    m_refused = false;
    m_reset = false;
    m_ended = false;
    m_wireWritten = 0;
    m_wireAcknowledged = 0;
    m_fd = connectSocket(m_host, m_port, SOCK_STREAM, m_resolver, m_waiter, limit, error, m_connectTime);
    return m_fd >= 0;
}

CByteStream::Clock::time_point CByteStream::verdictLimit(Clock::time_point limit) const
{
    const Clock::duration wait = std::clamp<Clock::duration>(4 * m_connectTime, VERDICT_MIN, VERDICT_MAX);
    return std::min(limit, Clock::now() + wait);
}

std::uint64_t CByteStream::acknowledgedWireBytes()
{
    tcp_info info{};
    socklen_t length = sizeof info;
    if (getsockopt(m_fd, IPPROTO_TCP, TCP_INFO, &info, &length) != 0) {
        return m_wireAcknowledged;
    }
    std::uint64_t acknowledged = m_wireAcknowledged;
    if (length >= offsetof(tcp_info, tcpi_bytes_acked) + sizeof info.tcpi_bytes_acked) {
        // The count survives a reset of the connection; it includes the SYN.
        if (info.tcpi_bytes_acked > 0) {
            acknowledged = info.tcpi_bytes_acked - 1;
        }
    } else if (info.tcpi_state == 1 /* TCP_ESTABLISHED */) {
        // An emulator that passes only the first word: what is not in the send queue any more
        // was acknowledged. After a reset the queue says nothing, hence the state.
        int queued = 0;
        if (ioctl(m_fd, SIOCOUTQ, &queued) == 0 && queued >= 0) {
            acknowledged = m_wireWritten - static_cast<std::uint64_t>(queued);
        }
    }
    m_wireAcknowledged = std::min(std::max(acknowledged, m_wireAcknowledged), m_wireWritten);
    return m_wireAcknowledged;
}

void CByteStream::closeSocket()
{
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

long CByteStream::sendBytes(const char* data, std::size_t size, std::string& error)
{
    for (;;) {
        const ssize_t sent = ::send(m_fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            m_wireWritten += static_cast<std::uint64_t>(sent);
            return static_cast<long>(sent);
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return 0;
        }
        if (errno != EINTR) {
            m_ended = true;
            m_reset = errno == ECONNRESET || errno == EPIPE;
            error = m_reset ? "connection reset by the relay" : std::strerror(errno);
            return -1;
        }
    }
}

long CByteStream::receiveBytes(char* data, std::size_t size, std::string& error)
{
    for (;;) {
        const ssize_t got = ::recv(m_fd, data, size, MSG_DONTWAIT);
        if (got > 0) {
            return static_cast<long>(got);
        }
        if (got == 0) {
            m_ended = true;
            error = "connection closed by the relay";
            return -1;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return 0;
        }
        if (errno != EINTR) {
            m_ended = true;
            m_reset = errno == ECONNRESET;
            error = m_reset ? "connection reset by the relay" : std::strerror(errno);
            return -1;
        }
    }
}
