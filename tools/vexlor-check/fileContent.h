// A file read once: what vexlor-check checks is exactly what --install writes, whatever happens
// to the file meanwhile.
#pragma once

#include <string>

// Reads the regular file `path` whole into `content`; false with `error` set (an operator's
// words) when it cannot be read, is no regular file, or is too large to be a configuration file.
// Never blocks on a FIFO or a device.
bool readOnce(const std::string& path, std::string& content, std::string& error);

// Bytes held in an anonymous memory file, sealed against change, with a path the library's
// reader can open (it takes a file name).
class CMemoryFile {
public:
    explicit CMemoryFile(const std::string& content);
    ~CMemoryFile();
    CMemoryFile(const CMemoryFile&) = delete;
    CMemoryFile& operator=(const CMemoryFile&) = delete;

    bool valid() const { return m_fd >= 0; }
    std::string path() const { return "/proc/self/fd/" + std::to_string(m_fd); }

private:
    int m_fd;
};
