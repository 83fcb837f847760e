// Name resolution and connection with time limits.
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

// One lookup of getaddrinfo_a. A lookup can outlive the wait for it (a dead DNS server): then
// its memory is left to the resolver, which writes into it when it finally answers.
struct CLookup {
    std::string host, service;
    addrinfo hints{};
    gaicb request{};
};

// The addresses of host, or null with `error` set. Numeric addresses need no resolver; names
// are resolved asynchronously so that a hanging resolver cannot hold up the drain at unload.
addrinfo* resolve(const std::string& host, int port, int type, CWaiter& waiter, Clock::time_point limit,
                  std::string& error)
{
    const std::string service = std::to_string(port);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = type;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* result = nullptr;
    if (getaddrinfo(host.c_str(), service.c_str(), &hints, &result) == 0) {
        return result;
    }
#if defined(__SANITIZE_THREAD__)
    // ThreadSanitizer cannot follow the threads that glibc starts for getaddrinfo_a.
    hints.ai_flags = AI_NUMERICSERV | AI_ADDRCONFIG;
    const int code = getaddrinfo(host.c_str(), service.c_str(), &hints, &result);
    if (code != 0) {
        error = std::string("cannot resolve - ") + gai_strerror(code);
        return nullptr;
    }
    (void)waiter;
    (void)limit;
    return result;
#endif
    auto* lookup = new CLookup{host, service, hints, {}};
    lookup->hints.ai_flags = AI_NUMERICSERV | AI_ADDRCONFIG;
    lookup->request.ar_name = lookup->host.c_str();
    lookup->request.ar_service = lookup->service.c_str();
    lookup->request.ar_request = &lookup->hints;
    gaicb* requests[] = {&lookup->request};
    int rc = getaddrinfo_a(GAI_NOWAIT, requests, 1, nullptr);
    if (rc != 0) {
        delete lookup;
        error = std::string("cannot resolve - ") + gai_strerror(rc);
        return nullptr;
    }
    // The resolver signals nothing we could poll: look every 20 ms while it works.
    while ((rc = gai_error(&lookup->request)) == EAI_INPROGRESS) {
        if (Clock::now() >= limit || waiter.expired()) {
            if (gai_cancel(&lookup->request) == EAI_CANCELED) {
                delete lookup;
            }
            error = "cannot resolve - no answer in time";
            return nullptr;
        }
        timespec step{0, 20 * 1000 * 1000};
        gai_suspend(requests, 1, &step);
    }
    result = lookup->request.ar_result;
    delete lookup;
    if (rc != 0) {
        error = std::string("cannot resolve - ") + gai_strerror(rc);
        return nullptr;
    }
    return result;
}

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
        error = std::strerror(code);
        return false;
    }
    return true;
}

}  // namespace

int connectSocket(const std::string& host, int port, int type, CWaiter& waiter, Clock::time_point limit,
                  std::string& error)
{
    addrinfo* addresses = resolve(host, port, type, waiter, limit, error);
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
    return connected;
}
