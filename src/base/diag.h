// The library's own traffic to syslog: its diagnostics, the syslog-style messages and the
// identity. Never through the targets, so a broken target can neither swallow nor recurse into
// the report of its own failure. Every call goes through one lock that fork takes (see
// forkSafety.h), so a fork child never inherits the C library's syslog lock from one of ours.
#pragma once

#include <string>

namespace vx {

// Sends one message at `priority`; the caller's format carries its unit prefix.
void diag(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

// openlog(ident, LOG_PID | LOG_NDELAY, LOG_USER) with a copy of `ident` that is never freed:
// syslog keeps the pointer and may use it from any thread, up to the very end of the process.
void openSyslog(const std::string& ident);

// strerror() that is safe to call from several threads at once.
const char* errnoText(int err);

}  // namespace vx
