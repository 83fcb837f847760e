// Assembles a program's answer from what arrives on the socket, within the protocol's bounds: a
// program of another user may send anything, at any length.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

using CLines = std::vector<std::vector<std::string>>;

class CAnswerReader {
public:
    enum class EState { INCOMPLETE, COMPLETE, TOO_LONG };
    // Bytes of the answer and the fields of all its lines, at most: each field costs memory.
    static constexpr std::size_t MAX_FIELDS = 1u << 18;

    // Takes the next bytes received. COMPLETE once the line "ok" or "error..." arrived (what
    // follows it is ignored); TOO_LONG once the answer passes a bound without one.
    EState feed(const char* data, std::size_t size);
    EState state() const { return m_state; }
    // The lines so far, split into fields; the last is "ok" or "error" once complete.
    const CLines& lines() const { return m_lines; }

private:
    std::string m_pending;  // the bytes after the last line feed
    std::size_t m_received = 0;
    std::size_t m_fields = 0;
    CLines m_lines;
    EState m_state = EState::INCOMPLETE;
};
