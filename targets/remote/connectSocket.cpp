// Connection with time limits.
#include "connectSocket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = CWaiter::Clock;

// Connects fd to one address; true when connected.
bool connectOne(int fd, const addrinfo& address, CWaiter& waiter, Clock::time_point limit, std::string& error)
{
    if (connect(fd, address.ai_addr, address.ai_addrlen) == 0) {
        return true;
    }
    if (errno != EINPROGRESS) {
        error = std::strerror(errno);
        return false;
    }
    // A wake-up for a new record ends the wait early: wait on until the limit.
    while ((waiter.wait(fd, POLLOUT, limit) & (POLLOUT | POLLERR | POLLHUP)) == 0) {
        if (Clock::now() >= limit || waiter.expired()) {
            error = "no connection in time";
            return false;
        }
    }
    int code = 0;
    socklen_t length = sizeof code;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &code, &length);
    if (code != 0) {
        // A reset here ended a connection the relay had accepted: the same fault as one noticed later.
        error = code == ECONNRESET ? "connection reset by the relay right after accepting the connection"
                                   : std::strerror(code);
        return false;
    }
    return true;
}

}  // namespace

int connectSocket(const std::string& host, int port, int type, CResolver& resolver, CWaiter& waiter,
                  Clock::time_point limit, std::string& error, Clock::duration& connectTime)
{
    addrinfo* addresses = resolver.resolve(host, port, type, waiter, limit, error);
    const Clock::time_point start = Clock::now();
    int connected = -1;
    for (const addrinfo* address = addresses; address != nullptr && connected < 0; address = address->ai_next) {
        const int fd = socket(address->ai_family, address->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            error = std::strerror(errno);
            continue;
        }
        if (connectOne(fd, *address, waiter, limit, error)) {
            connected = fd;
        } else {
            close(fd);
        }
    }
    if (addresses != nullptr) {
        freeaddrinfo(addresses);
    }
    connectTime = Clock::now() - start;
    return connected;
}
