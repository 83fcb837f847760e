// The library's own diagnostics: one helper that writes to syslog, never through the targets, so a
// broken target can neither swallow nor recurse into the report of its own failure.
#pragma once

namespace vx {

// Sends one message at `priority`; the caller's format carries its unit prefix.
void diag(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

// strerror() that is safe to call from several threads at once.
const char* errnoText(int err);

}  // namespace vx
