// An owned file descriptor: closed when the owner goes, so every failure path cleans up.
#pragma once

#include <unistd.h>

class CFileDescriptor {
public:
    CFileDescriptor() = default;
    explicit CFileDescriptor(int fd)
        : m_fd(fd)
    {
    }
    ~CFileDescriptor() { reset(); }
    CFileDescriptor(const CFileDescriptor&) = delete;
    CFileDescriptor& operator=(const CFileDescriptor&) = delete;

    int get() const { return m_fd; }
    bool valid() const { return m_fd != -1; }
    // Closes the descriptor held (never retried: it is released even on EINTR) and takes `fd`.
    void reset(int fd = -1)
    {
        if (m_fd != -1) {
            close(m_fd);
        }
        m_fd = fd;
    }

private:
    int m_fd = -1;
};
