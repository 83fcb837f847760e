// One ring file of this process (interop/ringFormat.h), mapped: allocated whole and named only
// once its header is complete, appended to by memory stores alone, renamed with the application.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

// A ring that cannot be made: what() names the step and the path, error() is the errno.
class CRingError : public std::runtime_error {
public:
    CRingError(const std::string& what, int error);
    int error() const { return m_error; }

private:
    int m_error;
};

class CRingFile {
public:
    // Creates `name` of `size` bytes (a multiple of 8) in the directory `dirFd` (`dir` is its path,
    // for messages). An older file of that name is kept under another name (moveAside). Throws
    // CRingError.
    CRingFile(int dirFd, const std::string& dir, const std::string& name, const std::string& application,
              std::size_t size);
    ~CRingFile();  // unmaps and closes: from then on the ring counts as ended
    CRingFile(const CRingFile&) = delete;
    CRingFile& operator=(const CRingFile&) = delete;

    // The log path. Never fails; the oldest records make room.
    void append(int pid, int depth, long long seconds, int microseconds, unsigned level, const std::string& thread,
                const std::string& component, const std::string& function, const std::string& message);
    // A new application name: into the header, and the file renamed to `name` in `dirFd`. 0, or
    // the errno of a rename that failed (the ring keeps its name then).
    int rename(int dirFd, const std::string& name, const std::string& application);
    // Removes the file now (it stays mapped until destruction).
    void remove(int dirFd);

    const std::string& name() const { return m_name; }
    std::uint64_t records() const { return m_nextSequence - 1; }
    // False in a fork child: the fork handler has closed and unmapped the parent's ring there.
    bool owned() const { return m_map != nullptr; }

private:
    friend void forgetRingsInChild();
    void writeName(const std::string& application);

    int m_fd = -1;  // holds the lock that marks the ring as alive
    unsigned char* m_map = nullptr;
    std::size_t m_size = 0;
    unsigned char* m_area = nullptr;  // the record area
    std::size_t m_areaSize = 0;
    std::size_t m_head = 0;  // where the next record goes
    std::uint64_t m_nextSequence = 1;
    std::string m_dir;
    std::string m_name;
};
