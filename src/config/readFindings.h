// What reading a configuration file found, as a kind and a line number, for a program that checks
// files (vexlor-check): it learns this here, never from the wording of the library's syslog
// messages. Also the reader's limits, which the checker states in its own findings.
#pragma once

#include <cstddef>
#include <string>

namespace vx {

constexpr int READER_LINE_BUFFER = 1024;  // one fgets: a line is taken in pieces of 1023 bytes
constexpr std::size_t READER_MAX_TEXT = 255;  // bytes of a key and of a value

enum class EReadFinding {
    KEY_TOO_LONG,  // the read stops at `line`
    VALUE_TOO_LONG,  // the read stops at `line`
    NOT_TERMINATED,  // no line feed before the end, or a NUL: the read stops at `line`
    NOT_READ,  // the file could not be opened or held (detail: the reader's words); line 0
    UNKNOWN_KEY,  // a key other than "component" and "target" (detail: the key); skipped
};

class IReadFindings {
public:
    virtual void found(EReadFinding kind, int line, const std::string& detail) = 0;

protected:
    ~IReadFindings() = default;
};

// Installs the observer of this thread's reads (nullptr: none, the default) and returns the one
// before. Reads on other threads are not observed.
IReadFindings* observeReads(IReadFindings* observer);
// Tells this thread's observer, if there is one.
void reportRead(EReadFinding kind, int line, const std::string& detail = std::string());

}  // namespace vx
