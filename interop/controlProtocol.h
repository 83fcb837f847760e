// The control target's socket name and line format, shared by the target and vexlorctl.
//
// Every controllable process listens on the abstract Unix stream socket "vexlor-control/<pid>".
// Abstract names need no directory: nothing world-writable for another user to pre-create or
// replace, no stale file after a crash (the name goes with the last descriptor), and the kernel
// lists every bound name in /proc/net/unix, which is how vexlorctl finds the processes. Anyone
// may connect to an abstract name, so the target checks the peer's credentials, and vexlorctl
// checks that the socket is served by the process its name promises.
//
// A request is one line; the answer is lines ending with "ok" or "error<TAB>text", after which
// the target closes the connection. Fields are separated by tabs; a backslash, tab or line feed
// inside a field travels as "\\", "\t" or "\n".
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

namespace vexlor_control {

constexpr const char* SOCKET_PREFIX = "vexlor-control/";
constexpr std::size_t MAX_REQUEST = 4096;  // bytes of one request line

// The abstract address of `pid`'s control socket; returns its length for bind/connect.
inline socklen_t socketAddress(int pid, sockaddr_un& address)
{
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    const std::string name = SOCKET_PREFIX + std::to_string(pid);
    std::memcpy(address.sun_path + 1, name.data(), name.size());  // sun_path[0] == 0: abstract
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

// Sends the whole text; gives up when the peer left or stalls past the socket's send time-out
// (either side's loss is then reported by the other end's reading).
inline void sendAll(int fd, const std::string& text)
{
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t n = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(n);
    }
}

inline std::string joinFields(const std::vector<std::string>& fields)
{
    std::string line;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i != 0) {
            line += '\t';
        }
        for (const char c : fields[i]) {
            switch (c) {
            case '\\': line += "\\\\"; break;
            case '\t': line += "\\t"; break;
            case '\n': line += "\\n"; break;
            default: line += c;
            }
        }
    }
    return line + '\n';
}

// `line` without its line feed.
inline std::vector<std::string> splitFields(const std::string& line)
{
    std::vector<std::string> fields(1);
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\t') {
            fields.emplace_back();
        } else if (line[i] == '\\' && i + 1 < line.size()) {
            const char next = line[++i];
            fields.back() += next == 't' ? '\t' : next == 'n' ? '\n' : next;
        } else {
            fields.back() += line[i];
        }
    }
    return fields;
}

}  // namespace vexlor_control
