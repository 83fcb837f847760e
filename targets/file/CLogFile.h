// The open log file: its descriptor (O_APPEND, so every write lands at the current end, also after
// another process appended or a copytruncate emptied the file), its identity (device and inode)
// and its size as far as this process knows it.
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

    // Opens `path` (created with `mode`, less the umask) in place of the current file. Returns 0,
    // or the errno of the failure, which keeps the current file.
    int open(const std::string& path, mode_t mode);
    int fd() const { return m_fd; }
    const std::string& path() const { return m_path; }
    unsigned long long size() const { return m_size; }
    void grew(std::size_t bytes) { m_size += bytes; }
    // False once the open file has no name left (removed): what is written there is lost.
    bool linked() const { return m_linked; }

    // One fstat: the size that truncation or other writers left, and whether the file is linked.
    void refresh();
    // One stat of the path.
    EPath pathState() const;

private:
    int m_fd = -1;
    std::string m_path;
    dev_t m_device = 0;
    ino_t m_inode = 0;
    unsigned long long m_size = 0;
    bool m_linked = true;
};
