// The sender's waits: poll on the socket and an eventfd, bounded by the stop deadline.
#include "CWaiter.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace {

int newEventFd()
{
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return fd;
}

}  // namespace

CWaiter::CWaiter()
    : m_eventFd(newEventFd())
{
}

CWaiter::~CWaiter() { close(m_eventFd); }

void CWaiter::wake()
{
    const std::uint64_t one = 1;
    // Only fails when the counter is full, and then the sender is woken anyway.
    (void)!write(m_eventFd, &one, sizeof one);
}

void CWaiter::stopAt(Clock::time_point deadline)
{
    m_deadline.store(deadline.time_since_epoch().count(), std::memory_order_relaxed);
    m_stopping.store(true, std::memory_order_release);
    wake();
}

bool CWaiter::expired() const
{
    return stopping() && Clock::now().time_since_epoch().count() >= m_deadline.load(std::memory_order_relaxed);
}

short CWaiter::wait(int fd, short events, Clock::time_point limit)
{
    const Clock::time_point deadline =
        std::min(limit, Clock::time_point(Clock::duration(m_deadline.load(std::memory_order_relaxed))));
    const Clock::time_point now = Clock::now();
    if (deadline <= now) {
        return 0;
    }
    int timeoutMs = -1;
    if (deadline != Clock::time_point::max()) {
        // Rounded up: a wait that ends a little early would only spin.
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
        timeoutMs = static_cast<int>(std::min<long long>(left, 24 * 3600 * 1000LL));
    }
    pollfd fds[2] = {{m_eventFd, POLLIN, 0}, {fd, events, 0}};
    const int ready = poll(fds, fd < 0 ? 1 : 2, timeoutMs);
    if (ready <= 0) {
        return 0;  // time is up, or a signal: the caller looks at its state again either way
    }
    if ((fds[0].revents & POLLIN) != 0) {
        std::uint64_t count = 0;
        (void)!read(m_eventFd, &count, sizeof count);
    }
    return fd < 0 ? 0 : fds[1].revents;
}

void CWaiter::renewAfterFork()
{
    close(m_eventFd);
    m_eventFd = newEventFd();
}
