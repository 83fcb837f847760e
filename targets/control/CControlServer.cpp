// The control socket's life: bound and served by one thread per process, stopped without
// deadlock under the library's lock, and left alone by fork children.
#include "CControlServer.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <syslog.h>

#include "CControlState.h"
#include "controlProtocol.h"
#include "controlSession.h"
#include "startThread.h"

namespace {

constexpr int BACKLOG = 64;  // vexlorctl list may ask many processes, each once
constexpr int ACCEPT_RETRY_MS = 1000;  // pause after a failed accept (descriptors exhausted)

// The server of this process, for the fork handler. There is at most one: a second could not
// bind the process's name. An atomic, not a list under a mutex: the fork handler must take no
// lock that a destructor running under the library's lock also takes, or the library's own fork
// preparation (which takes that lock) could deadlock against it.
std::atomic<CControlServer::CState*> liveServer{nullptr};

// A child must not keep the parent's socket: its copy would keep the name bound after the
// parent closed it (no re-creation, clients waiting for an answer nobody gives).
void closeInChild()
{
    if (CControlServer::CState* state = liveServer.load()) {
        close(state->listenFd);
        close(state->wakeFd);
        state->listenFd = -1;
        state->wakeFd = -1;
    }
}

void registerForkHandler()
{
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(nullptr, nullptr, closeInChild); });
}

std::string socketName(int pid) { return std::string("@") + vexlor_control::SOCKET_PREFIX + std::to_string(pid); }

int listeningSocket(pid_t pid)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address;
    const socklen_t length = vexlor_control::socketAddress(pid, address);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0 || listen(fd, BACKLOG) != 0) {
        const int error = errno;
        if (fd >= 0) {
            close(fd);
        }
        throw std::runtime_error("control target: unable to listen on \"" + socketName(pid) + "\" - " +
                                 std::strerror(error) +
                                 (error == EADDRINUSE ? " (is a second control target loaded?)" : ""));
    }
    return fd;
}

// Waits on the wake-up descriptor only: after a failed accept, so that a full descriptor table
// does not make the thread spin, and still ends at once when asked to.
void pauseUnlessWoken(int wakeFd)
{
    pollfd wake{wakeFd, POLLIN, 0};
    poll(&wake, 1, ACCEPT_RETRY_MS);
}

void acceptFailed(CControlServer::CState& state, int error)
{
    if (error == EINTR || error == EAGAIN || error == ECONNABORTED) {
        return;
    }
    if (state.acceptFailures++ == 0) {
        syslog(LOG_ERR, "control target: unable to accept a connection on \"%s\" - %s",
               socketName(state.ownerPid).c_str(), std::strerror(error));
    }
    pauseUnlessWoken(state.wakeFd);
}

void serveUntilStopped(CControlServer::CState& state)
{
    for (;;) {
        // No time-out: the thread sleeps until someone asks or the target goes.
        pollfd fds[2] = {{state.listenFd, POLLIN, 0}, {state.wakeFd, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            syslog(LOG_ERR, "control target: waiting for requests failed - %s; the program is no longer controllable",
                   std::strerror(errno));
            return;
        }
        if (fds[1].revents != 0 || state.stopping.load()) {
            return;
        }
        const int client = accept4(state.listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) {
            acceptFailed(state, errno);
            continue;
        }
        if (state.acceptFailures != 0) {
            syslog(LOG_NOTICE, "control target: accepting connections again after %u failed attempts",
                   state.acceptFailures);
            state.acceptFailures = 0;
        }
        const bool goOn = serveClient(state, client);
        close(client);
        if (!goOn) {
            return;
        }
    }
}

void* threadMain(void* argument)
{
    auto* state = static_cast<CControlServer::CState*>(argument);
    serveUntilStopped(*state);
    state->release();
    return nullptr;
}

// Keeps this plug-in mapped for the rest of the process, for a thread that outlives its target.
void pinThisLibrary()
{
    static const char anchor = 0;
    Dl_info info;
    if (dladdr(&anchor, &info) != 0 && info.dli_fname != nullptr) {
        dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);  // never closed, on purpose
    }
}

}  // namespace

CControlServer::CControlServer()
    : m_state(new CState)
    , m_thread()
{
    m_state->ownerPid = getpid();
    m_state->ownerUid = geteuid();
    try {
        m_state->listenFd = listeningSocket(m_state->ownerPid);
        m_state->wakeFd = eventfd(0, EFD_CLOEXEC);
        if (m_state->wakeFd < 0) {
            throw std::runtime_error(std::string("control target: unable to create an eventfd - ") +
                                     std::strerror(errno));
        }
        const int rc = startThread(m_thread, "vexlor-control", threadMain, m_state);
        if (rc != 0) {
            throw std::runtime_error(std::string("control target: unable to start its thread - ") + std::strerror(rc));
        }
    } catch (...) {
        if (m_state->listenFd >= 0) {
            close(m_state->listenFd);
        }
        m_state->owners.store(1);
        m_state->release();
        throw;
    }
    registerForkHandler();
    liveServer.store(m_state);
}

CControlServer::~CControlServer()
{
    liveServer.store(nullptr);
    if (getpid() != m_state->ownerPid) {
        // A fork child: the thread exists only in the parent, so its share is released here.
        if (m_state->listenFd >= 0) {
            close(m_state->listenFd);
        }
        m_state->release();
        m_state->release();
        return;
    }
    m_state->stopping.store(true);
    const std::uint64_t one = 1;
    while (write(m_state->wakeFd, &one, sizeof one) < 0 && errno == EINTR) {
    }
    // Busy means the thread is in, or entering, a library call that takes the library's lock,
    // which whoever destroys this target may hold: joining could wait forever. It is let go
    // instead; it sees `stopping` when the call returns and ends without another.
    if (m_state->busy.load() || pthread_equal(m_thread, pthread_self()) != 0) {
        pthread_detach(m_thread);
        pinThisLibrary();
    } else {
        pthread_join(m_thread, nullptr);
    }
    close(m_state->listenFd);
    m_state->release();
}
