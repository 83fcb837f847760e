// One connection: the peer's credentials decide, the request is read with a time limit, and the
// answer is built inside a guarded library call (see ~CControlServer for why it is guarded).
#include "controlSession.h"

#include <cerrno>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>

#include "controlAnswers.h"
#include "controlProtocol.h"

namespace {

// A client that connects and says nothing must not hold the thread for long.
constexpr int REQUEST_TIMEOUT_MS = 2000;
constexpr time_t SEND_TIMEOUT_S = 2;

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

void refuse(CControlServer::CState& state, int client, const ucred& peer)
{
    if (state.refusedUids.insert(peer.uid).second) {
        syslog(LOG_WARNING,
               "control target: refused a request from uid %u (pid %d): only uid %u and root may control this program",
               static_cast<unsigned>(peer.uid), static_cast<int>(peer.pid), static_cast<unsigned>(state.ownerUid));
    }
    const std::string reason = "permission denied: only uid " + std::to_string(state.ownerUid) +
        " and root may control process " + std::to_string(state.ownerPid);
    vexlor_control::sendAll(client, vexlor_control::joinFields({"error", reason}));
}

// False on time-out, end of file, an overlong line, or when the thread must end.
bool readRequest(const CControlServer::CState& state, int client, std::string& line)
{
    char buffer[512];
    std::size_t end;
    while ((end = line.find('\n')) == std::string::npos) {
        if (line.size() > vexlor_control::MAX_REQUEST) {
            return false;
        }
        pollfd fds[2] = {{client, POLLIN, 0}, {state.wakeFd, POLLIN, 0}};
        const int ready = poll(fds, 2, REQUEST_TIMEOUT_MS);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0 || fds[1].revents != 0) {
            return false;
        }
        const ssize_t n = recv(client, buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        line.append(buffer, static_cast<std::size_t>(n));
    }
    line.erase(end);
    return true;
}

}  // namespace

bool serveClient(CControlServer::CState& state, int client)
{
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
        return true;
    }
    const timeval sendTimeout{SEND_TIMEOUT_S, 0};
    setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &sendTimeout, sizeof sendTimeout);
    // Read before answering even a refusal: closing with the request unread would reset the
    // connection, and the client might see that instead of the reason.
    std::string request;
    if (!readRequest(state, client, request)) {
        return !state.stopping.load();
    }
    if (!mayControl(state, peer.uid)) {
        refuse(state, client, peer);
        return true;
    }
    std::string answer;
    {
        CLibraryCall call(state);
        if (!call.allowed()) {
            return false;
        }
        answer = answerRequest(vexlor_control::splitFields(request), peer.uid, peer.pid);
    }
    if (state.stopping.load()) {
        return false;  // the target is gone; the client sees the connection end without "ok"
    }
    vexlor_control::sendAll(client, answer);
    return true;
}
