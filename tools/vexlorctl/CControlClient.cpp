// The client side of the control socket: find the name the process itself serves, send one
// request, read the answer to its last line, all within one deadline and a bounded size.
#include "CControlClient.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <system_error>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "controlProtocol.h"

namespace {

using CClock = std::chrono::steady_clock;

constexpr std::size_t MAX_PARALLEL = 16;  // processes asked at once

class CSocket {
public:
    CSocket()
        : m_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
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

bool exists(int pid) { return kill(pid, 0) == 0 || errno != ESRCH; }

// Waits for `events` until the deadline; false when it passed first.
bool waitFor(int fd, short events, CClock::time_point deadline)
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - CClock::now()).count();
        pollfd ready{fd, events, 0};
        const int n = poll(&ready, 1, static_cast<int>(std::max<long long>(0, left)));
        if (n >= 0 || errno != EINTR) {
            return n > 0;
        }
    }
}

enum class EConnect { SERVED, HELD_BY_OTHER, ABSENT, QUEUE_FULL };

// Connects to `name` and checks that `pid` itself listens there, as root or as its own user: any
// user can bind a name, and the kernel records who listens (see controlProtocol.h).
EConnect connectToProcess(int fd, int pid, const std::string& name, ucred& holder, int& error)
{
    sockaddr_un address;
    const socklen_t length = vexlor_control::socketAddress(name, address);
    int rc;
    while ((rc = connect(fd, reinterpret_cast<const sockaddr*>(&address), length)) != 0 && errno == EINTR) {
    }
    if (rc != 0) {
        error = errno;
        return error == EAGAIN ? EConnect::QUEUE_FULL : EConnect::ABSENT;
    }
    socklen_t credLength = sizeof holder;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &holder, &credLength) != 0) {
        error = errno;
        return EConnect::ABSENT;
    }
    const bool trusted = holder.uid == 0 || static_cast<long>(holder.uid) == effectiveUid(pid);
    return holder.pid == pid && trusted ? EConnect::SERVED : EConnect::HELD_BY_OTHER;
}

// A failed send still leaves the program's reason for ending the connection to be read.
void sendRequest(int fd, const std::string& text, CClock::time_point deadline)
{
    for (std::size_t sent = 0; sent < text.size();) {
        const ssize_t n = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n > 0) {
            sent += static_cast<std::size_t>(n);
        } else if (n == 0 || (errno != EINTR && errno != EAGAIN) ||
                   (errno == EAGAIN && !waitFor(fd, POLLOUT, deadline))) {
            return;
        }
    }
}

CControlReply exchange(int fd, int pid, const std::vector<std::string>& request, CClock::time_point deadline)
{
    sendRequest(fd, vexlor_control::joinFields(request), deadline);
    CAnswerReader reader;
    char buffer[16384];
    while (reader.state() == CAnswerReader::EState::INCOMPLETE) {
        if (!waitFor(fd, POLLIN, deadline)) {
            return failure(CControlReply::notControllable,
                           processText(pid) + " did not answer within " +
                               std::to_string(vexlor_control::ANSWER_DEADLINE_MS / 1000) + " s");
        }
        const ssize_t n = recv(fd, buffer, sizeof buffer, 0);
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (n <= 0) {
            return exists(pid)
                ? failure(CControlReply::gone, processText(pid) + " stopped answering (its control target went away)")
                : failure(CControlReply::gone, processText(pid) + " ended while answering");
        }
        reader.feed(buffer, static_cast<std::size_t>(n));
    }
    if (reader.state() == CAnswerReader::EState::TOO_LONG) {
        return failure(CControlReply::notControllable,
                       processText(pid) + " answers beyond the limit of " + std::to_string(vexlor_control::MAX_ANSWER) +
                           " bytes or " + std::to_string(CAnswerReader::MAX_FIELDS) + " fields: not reading further");
    }
    CControlReply reply;
    reply.lines = reader.lines();
    const std::vector<std::string> last = reply.lines.back();
    reply.lines.pop_back();
    if (last[0] == "error") {
        return failure(CControlReply::error, processText(pid) + ": " + (last.size() > 1 ? last[1] : "error"));
    }
    reply.status = CControlReply::ok;
    return reply;
}

// Who holds `pid`'s names, when no name is served by `pid` itself.
std::string holderText(const std::string& name, pid_t holder, long uid)
{
    return "\"" + vexlor_control::shownName(name) + "\" is held by " +
        (holder > 0 ? "process " + std::to_string(holder) + " (uid " + std::to_string(uid) + ")"
                    : std::string("a process of another user"));
}

// The holders of sockets as this run of vexlorctl first saw them; a look at every process is
// taken only for a name that gives no credentials, at most once.
const CSocketHolders& socketHolders()
{
    static const CSocketHolders holders;
    return holders;
}

CControlReply notServed(int pid, const std::string& heldBy, int error)
{
    if (!heldBy.empty()) {
        return failure(CControlReply::notControllable,
                       processText(pid) + " is not controllable: " + heldBy + ", not by " + processText(pid) +
                           " (not asking it)");
    }
    if (error == ECONNREFUSED) {
        return failure(CControlReply::notControllable,
                       processText(pid) + " is not controllable (its configuration loads no control target)");
    }
    return failure(CControlReply::notControllable, "cannot reach " + processText(pid) + ": " + std::strerror(error));
}

}  // namespace

CControlReply askProcess(int pid, const std::vector<std::string>& names, const std::vector<std::string>& request)
{
    const CClock::time_point deadline = CClock::now() + std::chrono::milliseconds(vexlor_control::ANSWER_DEADLINE_MS);
    if (!exists(pid)) {
        return failure(CControlReply::gone, "no " + processText(pid));  // names squatted for pids to come
    }
    std::vector<std::string> candidates = names;
    if (candidates.empty() || candidates.front() != vexlor_control::primaryName(pid)) {
        candidates.insert(candidates.begin(), vexlor_control::primaryName(pid));
    }
    std::string heldBy;  // the first name of `pid` that another process holds
    std::string full;  // a name whose listen queue is full: its listener gives no credentials
    int error = ECONNREFUSED;
    for (const std::string& name : candidates) {
        CSocket socket;
        ucred holder{};
        switch (connectToProcess(socket.fd(), pid, name, holder, error)) {
        case EConnect::SERVED: return exchange(socket.fd(), pid, request, deadline);
        case EConnect::HELD_BY_OTHER:
            heldBy = heldBy.empty() ? holderText(name, holder.pid, holder.uid) : heldBy;
            break;
        case EConnect::QUEUE_FULL: full = full.empty() ? name : full; break;
        case EConnect::ABSENT: break;
        }
    }
    // Our targets accept at once: a queue that stays full is a squatter's, or a program stuck.
    if (heldBy.empty() && !full.empty()) {
        const pid_t holder = socketHolders().holderOf(full);
        if (holder == pid) {
            return failure(CControlReply::notControllable,
                           processText(pid) + " takes no connections on \"" + vexlor_control::shownName(full) +
                               "\" (its queue is full)");
        }
        heldBy = holderText(full, holder, effectiveUid(holder));
    }
    return notServed(pid, heldBy, error);
}

CControlReply askProcess(int pid, const std::vector<std::string>& request)
{
    const CControlNames names = controlNames();
    const auto found = names.find(pid);
    return askProcess(pid, found != names.end() ? found->second : std::vector<std::string>(), request);
}

std::vector<CControlReply> askEach(const std::vector<int>& pids, const CControlNames& names,
                                   const std::vector<std::string>& request)
{
    std::vector<CControlReply> replies(pids.size());
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t i; (i = next++) < pids.size();) {
            const auto found = names.find(pids[i]);
            replies[i] =
                askProcess(pids[i], found != names.end() ? found->second : std::vector<std::string>(), request);
        }
    };
    std::vector<std::thread> workers;
    try {
        while (workers.size() + 1 < std::min(MAX_PARALLEL, pids.size())) {
            workers.emplace_back(work);
        }
    } catch (const std::system_error&) {
        // Fewer helpers, the same work: this thread takes what is left.
    }
    work();
    for (std::thread& worker : workers) {
        worker.join();
    }
    return replies;
}
