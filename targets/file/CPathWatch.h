// Notices, through inotify, that a file was created, moved or removed in the log's directory, so
// that a move by logrotate or a person is seen at once instead of at the once-a-second check.
// Without inotify (none left, a file system that has none) the check alone remains.
#pragma once

#include <string>

class CPathWatch {
public:
    CPathWatch();
    ~CPathWatch();
    CPathWatch(const CPathWatch&) = delete;
    CPathWatch& operator=(const CPathWatch&) = delete;

    // Readable when events wait; -1 without inotify.
    int fd() const { return m_fd; }
    // Watches the directory of `path` instead of the previous one.
    void watch(const std::string& path);
    // Reads every waiting event; true when there was one.
    bool drain();

private:
    int m_fd;
    int m_watch = -1;
};
