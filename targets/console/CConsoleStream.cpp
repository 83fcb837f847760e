// Writing without SIGPIPE: a socket takes MSG_NOSIGNAL; for a pipe the signal is blocked in the
// writing thread around the write and, when the write raised it, taken back before unblocking.
// The program's own signal disposition is never touched.
#include "CConsoleStream.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "writeFully.h"

CConsoleStream::CConsoleStream(int fd)
    : m_fd(fd)
    , m_kind(EKind::OTHER)
{
    struct stat about { };
    if (fstat(fd, &about) == 0) {
        m_kind = S_ISSOCK(about.st_mode) ? EKind::SOCKET : S_ISFIFO(about.st_mode) ? EKind::PIPE : EKind::OTHER;
    }
}

int CConsoleStream::write(const char* data, std::size_t length)
{
    std::size_t written = 0;
    switch (m_kind) {
    case EKind::SOCKET: return sendToSocket(data, length);
    case EKind::PIPE: return writeToPipe(data, length);
    case EKind::OTHER: break;
    }
    return writeFully(m_fd, data, length, written);
}

int CConsoleStream::sendToSocket(const char* data, std::size_t length)
{
    std::size_t sent = 0;
    while (sent < length) {
        const ssize_t done = ::send(m_fd, data + sent, length - sent, MSG_NOSIGNAL);
        if (done >= 0) {
            sent += static_cast<std::size_t>(done);
        } else if (errno == ENOTSOCK) {
            // The program put something else on the descriptor since: guard it like a pipe.
            m_kind = EKind::PIPE;
            return writeToPipe(data + sent, length - sent);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

int CConsoleStream::writeToPipe(const char* data, std::size_t length)
{
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    // A SIGPIPE that the thread had blocked and pending already is the program's: leave it.
    bool pendingBefore = false;
    if (sigismember(&previous, SIGPIPE) == 1) {
        sigset_t pending;
        sigpending(&pending);
        pendingBefore = sigismember(&pending, SIGPIPE) == 1;
    }
    std::size_t written = 0;
    const int error = writeFully(m_fd, data, length, written);
    if (error == EPIPE && !pendingBefore) {
        const timespec noWait{};
        while (sigtimedwait(&pipeSignal, nullptr, &noWait) == -1 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return error;
}
