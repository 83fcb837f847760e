// An owned file descriptor for the targets: closed when its owner goes, so that every failure path
// cleans up. Never retried on EINTR: the descriptor is released all the same.
#pragma once

#include <unistd.h>

class CDescriptor {
public:
    explicit CDescriptor(int fd = -1)
        : m_fd(fd)
    {
    }
    ~CDescriptor()
    {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    int get() const { return m_fd; }
    // The caller owns the descriptor from now on.
    int release()
    {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }

private:
    int m_fd;
};
