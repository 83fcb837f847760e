// Sending entries to the journal's socket.
#include "CJournalSocket.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

sockaddr_un addressOf(const char* path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    return address;
}

}  // namespace

CJournalSocket::CJournalSocket(const char* path)
    : m_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    , m_path(path)
{
    // A journal that nobody reads at creation is a configuration mistake worth refusing the target;
    // a connected probe says so without sending anything.
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = addressOf(path);
    const bool reached =
        probe >= 0 && connect(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 && m_fd >= 0;
    const int error = errno;
    if (probe >= 0) {
        ::close(probe);
    }
    if (!reached) {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        throw std::runtime_error(std::string("no journal at ") + path + " - " + std::strerror(error) +
                                 " (is systemd-journald running?)");
    }
}

CJournalSocket::~CJournalSocket() { ::close(m_fd); }

int CJournalSocket::send(iovec* parts, int count, bool mayWait)
{
    int error = sendOnce(parts, count);
    // Datagrams are not polled for room on an unconnected socket: a few short naps instead.
    for (int waited = 0; error == EAGAIN && mayWait && waited < WAIT_MS; ++waited) {
        poll(nullptr, 0, 1);
        error = sendOnce(parts, count);
    }
    return error;
}

// Sent by path every time (not connected), as the journal's own clients do: a journal that made
// its socket anew is reached at once.
int CJournalSocket::sendOnce(iovec* parts, int count)
{
    sockaddr_un address = addressOf(m_path);
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof address;
    message.msg_iov = parts;
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
    for (;;) {
        if (sendmsg(m_fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0) {
            return 0;
        }
        if (errno != EINTR) {
            return errno == EWOULDBLOCK ? EAGAIN : errno;
        }
    }
}
