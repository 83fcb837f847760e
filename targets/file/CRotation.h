// Size rotation: before a write that would take the file past max-size, name.N-1 ... name.1 and
// then name move one number up (name.N, the oldest, is replaced) and the caller opens a new name.
// A rename that fails stops the chain where it is: no file is lost, the current file grows on,
// the reason is said once, and rotation is tried again at most once a second.
#pragma once

#include <string>

class CRotation {
public:
    // `who` opens the messages.
    CRotation(std::string who, unsigned long long maxSize, unsigned maxFiles);

    void setWho(std::string who) { m_who = std::move(who); }
    // True when `adding` bytes would take a file of `size` past max-size.
    bool due(unsigned long long size, std::size_t adding) const { return m_maxSize != 0 && size + adding > m_maxSize; }
    // Bytes left before a file of `size` reaches max-size.
    unsigned long long room(unsigned long long size) const { return size < m_maxSize ? m_maxSize - size : 0; }
    // Moves the chain up; true when `path` itself became path.1.
    bool rotate(const std::string& path);

private:
    std::string m_who;
    const unsigned long long m_maxSize;
    const unsigned m_maxFiles;
    bool m_failing = false;
    long long m_failedAtMs = 0;
};
