// The poll loop of the file target's thread.
#include "CFlushThread.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <unistd.h>

#include "startThread.h"

namespace {

long long nowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int makeEventFd()
{
    const int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd < 0) {
        throw std::runtime_error("cannot create the flush thread's eventfd");
    }
    return fd;
}

}  // namespace

CFlushThread::CFlushThread(int watchFd, std::function<void()> onPathEvent, std::function<void()> onDue)
    : m_watchFd(watchFd)
    , m_wakeFd(makeEventFd())
    , m_onPathEvent(std::move(onPathEvent))
    , m_onDue(std::move(onDue))
{
    if (startThread(m_thread, "vexlor-file", &CFlushThread::threadMain, this) != 0) {
        ::close(m_wakeFd);
        throw std::runtime_error("cannot start the file target's thread");
    }
}

void* CFlushThread::threadMain(void* self)
{
    static_cast<CFlushThread*>(self)->run();
    return nullptr;
}

CFlushThread::~CFlushThread()
{
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_stop = true;
    }
    wake();
    pthread_join(m_thread, nullptr);
    ::close(m_wakeFd);
}

void CFlushThread::dueIn(long long milliseconds)
{
    const long long due = nowMs() + milliseconds;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_dueMs >= 0 && m_dueMs <= due) {
            return;
        }
        m_dueMs = due;
    }
    wake();  // the thread sleeps without a deadline or with a later one
}

void CFlushThread::wake()
{
    const std::uint64_t one = 1;
    while (::write(m_wakeFd, &one, sizeof one) < 0 && errno == EINTR) {
    }
}

void CFlushThread::run()
{
    for (;;) {
        int timeout = -1;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            if (m_stop) {
                return;
            }
            if (m_dueMs >= 0) {
                timeout = static_cast<int>(std::max(0LL, m_dueMs - nowMs()));
            }
        }
        pollfd fds[2] = {{m_wakeFd, POLLIN, 0}, {m_watchFd, POLLIN, 0}};  // a negative fd is skipped
        if (poll(fds, 2, timeout) > 0) {
            std::uint64_t count = 0;
            if ((fds[0].revents & POLLIN) != 0 && ::read(m_wakeFd, &count, sizeof count) < 0) {
                count = 0;  // EAGAIN: another read took it
            }
            if ((fds[1].revents & POLLIN) != 0) {
                m_onPathEvent();
            }
        }
        bool due = false;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            if (m_dueMs >= 0 && nowMs() >= m_dueMs) {
                m_dueMs = -1;
                due = true;
            }
        }
        if (due) {
            m_onDue();
        }
    }
}
