// The file target's one thread. It sleeps in poll until the log's directory changes (then it calls
// onPathEvent) or buffered records fall due (then onDue). With nothing buffered and nothing moving
// it never wakes.
#pragma once

#include <functional>
#include <mutex>
#include <pthread.h>

class CFlushThread {
public:
    // `watchFd`: readable when the directory changed (-1: none). The callbacks run on the thread.
    CFlushThread(int watchFd, std::function<void()> onPathEvent, std::function<void()> onDue);
    // Wakes the thread and joins it.
    ~CFlushThread();
    CFlushThread(const CFlushThread&) = delete;
    CFlushThread& operator=(const CFlushThread&) = delete;

    // Calls onDue `milliseconds` from now, unless an earlier call is pending already.
    void dueIn(long long milliseconds);

private:
    static void* threadMain(void* self);
    void run();
    void wake();

    const int m_watchFd;
    const int m_wakeFd;  // an eventfd: a new deadline or the end
    const std::function<void()> m_onPathEvent;
    const std::function<void()> m_onDue;
    std::mutex m_mutex;
    long long m_dueMs = -1;  // guarded by m_mutex; steady clock, -1: nothing due
    bool m_stop = false;  // guarded by m_mutex
    pthread_t m_thread{};
};
