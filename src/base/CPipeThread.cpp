// The pipe-driven worker thread (see CPipeThread.h).
#include "base/CPipeThread.h"

#include <cerrno>
#include <fcntl.h>

#include "base/retryOnEintr.h"
#include "base/startThread.h"

CPipeThread::CPipeThread() { vx::registerForkChild(this); }

CPipeThread::~CPipeThread() { vx::unregisterForkChild(this); }

int CPipeThread::openPipe(bool nonBlockingWrite)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return -1;
    }
    m_readFd.reset(fds[0]);
    m_writeFd.reset(fds[1]);
    if (nonBlockingWrite) {
        fcntl(fds[1], F_SETFL, O_NONBLOCK);
    }
    return 0;
}

int CPipeThread::start(const char* name)
{
    const int rc = vx::startThread(m_thread, name, &CPipeThread::threadMain, this);
    m_running = rc == 0;
    return rc;
}

void* CPipeThread::threadMain(void* self)
{
    static_cast<CPipeThread*>(self)->run();
    return nullptr;
}

int CPipeThread::send(const void* message, std::size_t size)
{
    if (!m_writeFd.valid()) {
        errno = EBADF;
        return -1;
    }
    const ssize_t written = vx::retryOnEintr([&] { return write(m_writeFd.get(), message, size); });
    return written == static_cast<ssize_t>(size) ? 0 : -1;
}

bool CPipeThread::receive(void* message, std::size_t size)
{
    const ssize_t got = vx::retryOnEintr([&] { return read(m_readFd.get(), message, size); });
    return got == static_cast<ssize_t>(size);
}

void CPipeThread::finish(bool stopMessageSent)
{
    if (m_running) {
        if (!stopMessageSent) {
            m_writeFd.reset();
        }
        if (pthread_equal(m_thread, pthread_self()) != 0) {
            // Ended from its own thread (a plug-in ended the process from inside a re-read): it
            // cannot join itself, and runs no further loop iteration once this returns.
            pthread_detach(m_thread);
        } else {
            pthread_join(m_thread, nullptr);
        }
        m_running = false;
    }
    m_writeFd.reset();
    m_readFd.reset();
}

void CPipeThread::resetInChild()
{
    m_running = false;
    m_readFd.reset();
    m_writeFd.reset();
    afterForkInChild();
}
