// The open log file: its descriptor (O_APPEND, so every write lands at the current end, also after
// another process appended or a copytruncate emptied the file), its identity (device and inode),
// its size as far as this process knows it, and the lock that lets one process at a time rotate it.
#pragma once

#include <string>
#include <sys/types.h>

class CLogFile {
public:
    enum class EPath { SAME, REPLACED, MISSING };  // where the path leads, against the open file

    CLogFile() = default;
    ~CLogFile();
    CLogFile(const CLogFile&) = delete;
    CLogFile& operator=(const CLogFile&) = delete;

    // Opens `path` (openLogFile: created with `mode`, less the umask) in place of the current
    // file. Returns "", or why it cannot, and keeps the current file then.
    std::string open(const std::string& path, mode_t mode);
    int fd() const { return m_fd; }
    const std::string& path() const { return m_path; }
    unsigned long long size() const { return m_size; }
    void grew(std::size_t bytes) { m_size += bytes; }
    // False once the open file has no name left (removed): what is written there is lost.
    bool linked() const { return m_linked; }

    // One fstat: the size that truncation or other writers left, and whether the file is linked.
    void refresh();
    // One lstat of the path: a symbolic link put there is never the open file.
    EPath pathState() const;

    // The advisory lock (flock) that every process appending to this file takes to rotate it,
    // without waiting: false while another one holds it. open() releases it.
    bool lockForRotation();
    void unlock();

private:
    int m_fd = -1;
    std::string m_path;
    dev_t m_device = 0;
    ino_t m_inode = 0;
    unsigned long long m_size = 0;
    bool m_linked = true;
    bool m_locked = false;
};
