// The control socket's life: bound and served by one thread per process, stopped without
// deadlock under the library's lock, and left alone by fork children.
#include "CControlServer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include "CControlState.h"
#include "controlSession.h"
#include "controlSocket.h"
#include "startThread.h"
#include "temporaryRaises.h"

namespace {

constexpr int ACCEPT_RETRY_MS = 1000;  // pause after a failed accept (descriptors exhausted)
// Connections served at once. Only root and the program's own user get one (others are turned
// away at accept), and each ends by its deadline, so a full set only delays the next in line.
constexpr std::size_t MAX_SESSIONS = 16;

using CSessions = std::vector<std::unique_ptr<CControlSession>>;
using CClock = CControlSession::CClock;

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

// Waits on the wake-up descriptor only: after a failed accept, so that a full descriptor table
// does not make the thread spin, and still ends at once when asked to.
void pauseUnlessWoken(int wakeFd)
{
    pollfd wake{wakeFd, POLLIN, 0};
    poll(&wake, 1, ACCEPT_RETRY_MS);
}

void acceptOne(CControlServer::CState& state, CSessions& sessions)
{
    const int client = accept4(state.listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client < 0) {
        const int error = errno;
        if (error == EINTR || error == EAGAIN || error == EWOULDBLOCK || error == ECONNABORTED) {
            return;
        }
        if (state.acceptFailures++ == 0) {
            syslog(LOG_ERR, "control target: unable to accept a connection on \"@%s\" - %s", state.name.c_str(),
                   std::strerror(error));
        }
        pauseUnlessWoken(state.wakeFd);
        return;
    }
    if (state.acceptFailures != 0) {
        syslog(LOG_NOTICE, "control target: accepting connections again after %u failed attempts",
               state.acceptFailures);
        state.acceptFailures = 0;
    }
    ucred peer{};
    if (!admit(state, client, peer)) {
        close(client);
        return;
    }
    sessions.push_back(std::make_unique<CControlSession>(client, peer));
}

// Until the earliest deadline of a connection or a raise; forever (-1) when there is neither: the
// thread sleeps until someone asks or the target goes.
int pollTimeout(const CSessions& sessions)
{
    const int raise = temporaryRaises::msUntilDue();
    if (sessions.empty()) {
        return raise;
    }
    CClock::time_point first = sessions.front()->deadline();
    for (const auto& session : sessions) {
        first = std::min(first, session->deadline());
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(first - CClock::now());
    const int session = static_cast<int>(std::max<long long>(0, left.count()));
    return raise < 0 ? session : std::min(session, raise);
}

void serveUntilStopped(CControlServer::CState& state)
{
    CSessions& sessions = state.sessions;
    for (;;) {
        // A full set leaves new connections waiting in the listen queue.
        pollfd fds[2 + MAX_SESSIONS] = {{state.wakeFd, POLLIN, 0},
                                        {sessions.size() < MAX_SESSIONS ? state.listenFd : -1, POLLIN, 0}};
        for (std::size_t i = 0; i < sessions.size(); ++i) {
            fds[i + 2] = {sessions[i]->fd(), sessions[i]->events(), 0};
        }
        if (poll(fds, 2 + sessions.size(), pollTimeout(sessions)) < 0) {
            if (errno == EINTR) {
                continue;
            }
            syslog(LOG_ERR, "control target: waiting for requests failed - %s; the program is no longer controllable",
                   std::strerror(errno));
            return;
        }
        if (fds[0].revents != 0 || state.stopping.load() || !revertDueRaises(state)) {
            return;
        }
        const CClock::time_point now = CClock::now();
        for (std::size_t i = sessions.size(); i-- > 0;) {
            const CControlSession::EStep step =
                fds[i + 2].revents != 0 ? sessions[i]->onReady(state) : CControlSession::EStep::GO_ON;
            if (step == CControlSession::EStep::STOP_THREAD) {
                return;
            }
            if (step == CControlSession::EStep::DONE || now >= sessions[i]->deadline()) {
                sessions.erase(sessions.begin() + static_cast<std::ptrdiff_t>(i));
            }
        }
        if (fds[1].revents != 0) {
            acceptOne(state, sessions);
        }
    }
}

void* threadMain(void* argument)
{
    auto* state = static_cast<CControlServer::CState*>(argument);
    serveUntilStopped(*state);
    state->sessions.clear();
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

CControlServer::CState::~CState()
{
    if (wakeFd >= 0) {
        close(wakeFd);
    }
}

void CControlServer::CState::release()
{
    if (owners.fetch_sub(1) == 1) {
        delete this;
    }
}

CControlServer::CControlServer()
    : m_state(new CState)
    , m_thread()
{
    m_state->ownerPid = getpid();
    m_state->ownerUid = geteuid();
    try {
        m_state->listenFd = listenOnControlName(m_state->ownerPid, m_state->name);
        m_state->wakeFd = eventfd(0, EFD_CLOEXEC);
        if (m_state->wakeFd < 0) {
            throw std::runtime_error(std::string("unable to create an eventfd - ") + std::strerror(errno));
        }
        const int rc = startThread(m_thread, "vexlor-control", threadMain, m_state);
        if (rc != 0) {
            throw std::runtime_error(std::string("unable to start its thread - ") + std::strerror(rc));
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
