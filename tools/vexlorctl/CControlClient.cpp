// The client side of the control socket: connect, make sure the socket belongs to the process
// it is named after, send one request, read the answer to its last line.
#include "CControlClient.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "controlProtocol.h"

namespace {

// A program answers at once; this only bounds a hung one.
constexpr time_t REPLY_TIMEOUT_S = 5;

class CSocket {
public:
    CSocket()
        : m_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
    }
    ~CSocket()
    {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    CSocket(const CSocket&) = delete;
    CSocket& operator=(const CSocket&) = delete;
    int fd() const { return m_fd; }

private:
    const int m_fd;
};

CControlReply failure(CControlReply::EStatus status, const std::string& text)
{
    CControlReply reply;
    reply.status = status;
    reply.text = text;
    return reply;
}

std::string processText(int pid) { return "process " + std::to_string(pid); }

CControlReply connectFailed(int pid, int error)
{
    if (kill(pid, 0) != 0 && errno == ESRCH) {
        return failure(CControlReply::gone, "no " + processText(pid));
    }
    if (error == ECONNREFUSED) {
        return failure(CControlReply::notControllable,
                       processText(pid) + " is not controllable (its configuration loads no control target)");
    }
    return failure(CControlReply::notControllable, "cannot reach " + processText(pid) + ": " + std::strerror(error));
}

// The answer's lines up to "ok" or "error"; false when the connection ended first.
bool readAnswer(int fd, std::vector<std::vector<std::string>>& lines, int& error)
{
    std::string pending;
    char buffer[4096];
    for (;;) {
        std::size_t end;
        while ((end = pending.find('\n')) != std::string::npos) {
            lines.push_back(vexlor_control::splitFields(pending.substr(0, end)));
            pending.erase(0, end + 1);
            if (lines.back()[0] == "ok" || lines.back()[0] == "error") {
                return true;
            }
        }
        const ssize_t n = recv(fd, buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            error = n < 0 ? errno : 0;
            return false;
        }
        pending.append(buffer, static_cast<std::size_t>(n));
    }
}

}  // namespace

CControlReply askProcess(int pid, const std::vector<std::string>& request)
{
    CSocket socket;
    const timeval timeout{REPLY_TIMEOUT_S, 0};
    setsockopt(socket.fd(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    setsockopt(socket.fd(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    sockaddr_un address;
    const socklen_t length = vexlor_control::socketAddress(pid, address);
    if (connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        return connectFailed(pid, errno);
    }
    // Anyone may bind an abstract name: trust the socket only if its own process serves it.
    ucred server{};
    socklen_t credLength = sizeof server;
    if (getsockopt(socket.fd(), SOL_SOCKET, SO_PEERCRED, &server, &credLength) != 0 || server.pid != pid) {
        return failure(CControlReply::notControllable,
                       "the control socket of " + processText(pid) + " is held by process " +
                           std::to_string(server.pid) + " (uid " + std::to_string(server.uid) + "): not asking it");
    }
    CControlReply reply;
    int error = 0;
    // A failed send still leaves the program's reason for ending the connection to be read.
    vexlor_control::sendAll(socket.fd(), vexlor_control::joinFields(request));
    if (!readAnswer(socket.fd(), reply.lines, error)) {
        if (kill(pid, 0) != 0 && errno == ESRCH) {
            return failure(CControlReply::gone, processText(pid) + " ended while answering");
        }
        if (error == EAGAIN || error == EWOULDBLOCK) {
            return failure(CControlReply::notControllable,
                           processText(pid) + " did not answer within " + std::to_string(REPLY_TIMEOUT_S) + " s");
        }
        return failure(CControlReply::gone, processText(pid) + " stopped answering (its control target went away)");
    }
    const std::vector<std::string>& last = reply.lines.back();
    if (last[0] == "error") {
        return failure(CControlReply::error, processText(pid) + ": " + (last.size() > 1 ? last[1] : "error"));
    }
    reply.lines.pop_back();
    reply.status = CControlReply::ok;
    return reply;
}
