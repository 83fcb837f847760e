// One connection: the peer's credentials decide at accept, the request and the answer move
// without blocking within one deadline, and the answer is built inside a guarded library call
// (see ~CControlServer for why it is guarded).
#include "controlSession.h"

#include <cerrno>
#include <poll.h>
#include <syslog.h>
#include <unistd.h>
#include <vexlor/vexlor.h>

#include "controlAnswers.h"
#include "controlProtocol.h"
#include "temporaryRaises.h"

namespace {

constexpr std::size_t READ_CHUNK = 512;

// Marks the thread busy for the duration of one library call, unless it must end already.
class CLibraryCall {
public:
    explicit CLibraryCall(CControlServer::CState& state)
        : m_state(state)
    {
        m_state.busy.store(true);
        // After `busy`: the destructor sets `stopping` before it reads `busy` (see there).
        m_allowed = !m_state.stopping.load();
    }
    ~CLibraryCall() { m_state.busy.store(false); }
    CLibraryCall(const CLibraryCall&) = delete;
    CLibraryCall& operator=(const CLibraryCall&) = delete;

    bool allowed() const { return m_allowed; }

private:
    CControlServer::CState& m_state;
    bool m_allowed;
};

bool mayControl(const CControlServer::CState& state, uid_t uid)
{
    return uid == 0 || uid == state.ownerUid || uid == getuid();
}

bool wouldBlock(ssize_t n) { return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR); }

}  // namespace

bool revertDueRaises(CControlServer::CState& state)
{
    for (const temporaryRaises::CRaise& raise : temporaryRaises::takeDue()) {
        CLibraryCall call(state);
        if (!call.allowed()) {
            return false;
        }
        // A mask changed meanwhile (by a configuration read, another set) stays.
        if (vexlor_get_component_level(raise.component) == raise.raised) {
            vexlor_set_component_level(raise.component, raise.restore);
            syslog(LOG_NOTICE, "control target: component %s back to 0x%x (set to 0x%x for a while)",
                   raise.component.c_str(), raise.restore, raise.raised);
        }
    }
    return true;
}

bool admit(CControlServer::CState& state, int fd, ucred& peer)
{
    socklen_t length = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
        return false;
    }
    if (mayControl(state, peer.uid)) {
        return true;
    }
    if (state.refusedUids.insert(peer.uid).second) {
        syslog(LOG_WARNING,
               "control target: refused a request from uid %u (pid %d): only uid %u and root may control this program",
               static_cast<unsigned>(peer.uid), static_cast<int>(peer.pid), static_cast<unsigned>(state.ownerUid));
    }
    // A fresh connection takes this small line whole. Closing with the request unread resets
    // the connection, but the client reads what was sent to it before it sees the reset.
    const std::string reason =
        vexlor_control::joinFields({"error",
                                    "permission denied: only uid " + std::to_string(state.ownerUid) +
                                        " and root may control process " + std::to_string(state.ownerPid)});
    send(fd, reason.data(), reason.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return false;
}

CControlSession::CControlSession(int fd, const ucred& peer)
    : m_fd(fd)
    , m_peer(peer)
    , m_deadline(CClock::now() + std::chrono::milliseconds(vexlor_control::REQUEST_DEADLINE_MS))
{
}

CControlSession::~CControlSession() { close(m_fd); }

short CControlSession::events() const { return m_output.empty() ? POLLIN : POLLOUT; }

CControlSession::EStep CControlSession::onReady(CControlServer::CState& state)
{
    return m_output.empty() ? read(state) : write();
}

CControlSession::EStep CControlSession::read(CControlServer::CState& state)
{
    char buffer[READ_CHUNK];
    const ssize_t n = recv(m_fd, buffer, sizeof buffer, MSG_DONTWAIT);
    if (wouldBlock(n)) {
        return EStep::GO_ON;
    }
    if (n <= 0) {
        return EStep::DONE;  // gone before its request was complete
    }
    m_input.append(buffer, static_cast<std::size_t>(n));
    std::string request;
    switch (vexlor_control::takeRequestLine(m_input, request)) {
    case vexlor_control::EFrame::INCOMPLETE: return EStep::GO_ON;
    case vexlor_control::EFrame::OVERLONG:
        m_output = vexlor_control::joinFields(
            {"error", "a request longer than " + std::to_string(vexlor_control::MAX_REQUEST) + " bytes"});
        break;
    case vexlor_control::EFrame::LINE: {
        CLibraryCall call(state);
        if (!call.allowed()) {
            return EStep::STOP_THREAD;
        }
        m_output = answerRequest(vexlor_control::splitFields(request), m_peer.uid, m_peer.pid);
        break;
    }
    }
    // The target is gone: the client sees the connection end without "ok".
    return state.stopping.load() ? EStep::STOP_THREAD : write();
}

CControlSession::EStep CControlSession::write()
{
    const ssize_t n = send(m_fd, m_output.data() + m_sent, m_output.size() - m_sent, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (wouldBlock(n)) {
        return EStep::GO_ON;
    }
    if (n <= 0) {
        return EStep::DONE;
    }
    m_sent += static_cast<std::size_t>(n);
    return m_sent == m_output.size() ? EStep::DONE : EStep::GO_ON;
}
