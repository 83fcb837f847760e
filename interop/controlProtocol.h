// The control target's socket names, limits and line format, shared by the target and vexlorctl.
//
// Every controllable process listens on an abstract Unix stream socket named after its pid:
// "vexlor-control/<pid>". Abstract names need no directory (nothing world-writable to plant or
// replace, no stale file after a crash), and the kernel lists every bound name in /proc/net/unix,
// which is how vexlorctl finds the processes. But any user may bind any abstract name, a future
// pid's included. A process that finds its name taken therefore listens on
// "vexlor-control/<pid>.<16 random hex digits>" instead, which nobody can guess before it is
// bound. A name proves nothing either way: vexlorctl trusts a socket only when its listener is the
// process the name gives, running as root or as that process's own user (SO_PEERCRED), and the
// target serves only root and its own user, checked before it reads a byte.
//
// A request is one line; the answer is lines ending with "ok" or "error<TAB>text", after which
// the target closes the connection. Fields are separated by tabs; a backslash, tab or line feed
// inside a field travels as "\\", "\t" or "\n". Both ends bound what they read in size and time.
//
// Requests, and the lines of their answers (a reader skips lines it does not know):
//   info                 pid <pid>, application <name>, program <name>, components <count>
//   show                 the info lines; syslogmask <hex>; per component: component <name> <hex
//                        mask>, description <name> <number> <text>...; the target lines; config
//                        <path> followed|not-followed|missing; raise <component> <seconds left>
//                        <hex mask after> for each mask set for a while
//   stats                the info lines and the target lines
//   set <component> <hex mask> [<seconds>]
//                        changed <component> <hex old> <hex new>, and with seconds: raise ...
// A target line: target <name> <kind> <state, empty while it works>, then pairs of a counter's
// name and its decimal value: written, dropped, lost, suppressed first, then the target's own.
#pragma once

#include <cstddef>
#include <string>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>
#include <vector>

namespace vexlor_control {

constexpr const char* SOCKET_PREFIX = "vexlor-control/";
constexpr std::size_t MAX_REQUEST = 4096;  // bytes of one request line
constexpr std::size_t MAX_ANSWER = 4u << 20;  // bytes of one answer: far above any real registry's
constexpr int REQUEST_DEADLINE_MS = 2000;  // the target's limit for one whole exchange
constexpr int ANSWER_DEADLINE_MS = 5000;  // vexlorctl's limit for one whole exchange

// The name `pid` binds first, and the one it falls back to when another process holds that.
std::string primaryName(pid_t pid);
std::string fallbackName(pid_t pid, unsigned long long nonce);
// The pid a control name (either form) stands for; -1 for any other name.
pid_t pidOfName(const std::string& name);
// The abstract address of `name`; returns its length for bind/connect.
socklen_t socketAddress(const std::string& name, sockaddr_un& address);
// How a name reads in messages and in /proc/net/unix.
inline std::string shownName(const std::string& name) { return "@" + name; }

std::string joinFields(const std::vector<std::string>& fields);
// `line` without its line feed.
std::vector<std::string> splitFields(const std::string& line);

// Takes the first line (without its line feed) off `input`, as the target reads a request.
enum class EFrame { INCOMPLETE, LINE, OVERLONG };
EFrame takeRequestLine(std::string& input, std::string& line);

}  // namespace vexlor_control
