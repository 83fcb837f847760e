// How the sender thread waits: for a socket, for new records or for a time, and always also for
// the stop request, whose deadline (the end of the drain at unload) bounds every wait after it.
#pragma once

#include <atomic>
#include <chrono>

class CWaiter {
public:
    using Clock = std::chrono::steady_clock;

    CWaiter();  // throws std::system_error when no eventfd can be had
    ~CWaiter();
    CWaiter(const CWaiter&) = delete;
    CWaiter& operator=(const CWaiter&) = delete;

    // Any thread: wakes the sender from its current or next wait.
    void wake();
    // Any thread: from now on, every wait ends at `deadline` at the latest.
    void stopAt(Clock::time_point deadline);
    bool stopping() const { return m_stopping.load(std::memory_order_acquire); }
    // The stop deadline has passed: the sender gives up what it still has.
    bool expired() const;

    // Waits until `fd` reports one of `events`, the time `limit` or the stop deadline passes, or
    // wake() is called. Returns the events seen on fd (0 for all other endings).
    short wait(int fd, short events, Clock::time_point limit);
    // Waits for wake(), `limit` or the stop deadline.
    void sleep(Clock::time_point limit) { wait(-1, 0, limit); }

    // In a fork child: the descriptor is shared with the parent's sender, so take a new one.
    void renewAfterFork();

private:
    int m_eventFd;
    std::atomic<bool> m_stopping{false};
    std::atomic<Clock::rep> m_deadline{Clock::time_point::max().time_since_epoch().count()};
};
