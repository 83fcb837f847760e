// Binding the control name: the plain name when free, else an unguessable fallback, so that
// another user who binds the names of future pids cannot keep a program from being controlled.
#include "controlSocket.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/random.h>
#include <sys/socket.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "controlProtocol.h"
#include "unixSockets.h"

namespace {

constexpr int BACKLOG = 64;  // vexlorctl list may ask many processes, each once
constexpr int FALLBACK_TRIES = 4;  // a random name is taken only by chance; a few tries suffice

std::string quoted(const std::string& name) { return "\"" + vexlor_control::shownName(name) + "\""; }

// 0 on success, else errno; `fd` is closed on failure.
int bindAndListen(int fd, const std::string& name)
{
    sockaddr_un address;
    const socklen_t length = vexlor_control::socketAddress(name, address);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0 || listen(fd, BACKLOG) != 0) {
        const int error = errno;
        close(fd);
        return error;
    }
    return 0;
}

// Who listens on `name`, as the kernel recorded it when that socket began to listen.
bool listenerOf(const std::string& name, ucred& holder)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address;
    const socklen_t length = vexlor_control::socketAddress(name, address);
    socklen_t credLength = sizeof holder;
    const bool known = fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
        getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &holder, &credLength) == 0;
    if (fd >= 0) {
        close(fd);
    }
    return known;
}

std::string holderText(const std::string& name, pid_t self)
{
    ucred holder{};
    if (!listenerOf(name, holder)) {
        // It only holds the name, or fills its queue: the open descriptors tell (to root).
        holder.pid = CSocketHolders().holderOf(name);
        holder.uid = static_cast<uid_t>(effectiveUid(holder.pid));
        if (holder.pid <= 0) {
            return "a process of another user that takes no connections on it";
        }
    }
    if (holder.pid == self) {
        throw std::runtime_error(quoted(name) +
                                 " is already served by this process: a second control target is loaded");
    }
    return "process " + std::to_string(holder.pid) + " (uid " + std::to_string(holder.uid) + ")";
}

[[noreturn]] void cannotListen(const std::string& name, int error)
{
    throw std::runtime_error("unable to listen on " + quoted(name) + " - " + std::strerror(error));
}

// Never blocks: early in boot, before the kernel's generator is seeded, the clock must do.
unsigned long long nonce()
{
    unsigned long long value = 0;
    if (getrandom(&value, sizeof value, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof value)) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        value =
            static_cast<unsigned long long>(now.tv_sec) * 1000000007ull ^ static_cast<unsigned long long>(now.tv_nsec);
    }
    return value;
}

int newSocket()
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        throw std::runtime_error(std::string("unable to create a socket - ") + std::strerror(errno));
    }
    return fd;
}

}  // namespace

int listenOnControlName(pid_t pid, std::string& name)
{
    const std::string primary = vexlor_control::primaryName(pid);
    int fd = newSocket();
    int error = bindAndListen(fd, primary);
    if (error == 0) {
        name = primary;
        return fd;
    }
    if (error != EADDRINUSE) {
        cannotListen(primary, error);
    }
    const std::string holder = holderText(primary, pid);
    for (int attempt = 0; attempt < FALLBACK_TRIES && error == EADDRINUSE; ++attempt) {
        name = vexlor_control::fallbackName(pid, nonce());
        fd = newSocket();
        error = bindAndListen(fd, name);
    }
    if (error != 0) {
        cannotListen(name, error);
    }
    // Another user may bind the names of pids to come; the program stays controllable, and the
    // operator learns who did it.
    syslog(LOG_WARNING, "control target: %s is held by %s; serving on %s instead, where vexlorctl finds it",
           quoted(primary).c_str(), holder.c_str(), quoted(name).c_str());
    return fd;
}
