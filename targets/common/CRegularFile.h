// Opening a file that a target appends to or reads, without ever waiting on what sits at its
// path: the open itself does not block (a FIFO without a partner would hold it for good), and
// anything but a regular file (a FIFO, a device, a socket, a directory) is refused with a reason
// an operator can act on.
#pragma once

#include <fcntl.h>
#include <string>
#include <sys/types.h>

class CRegularFile {
public:
    // Opens `name`, relative to the directory descriptor `directory` (AT_FDCWD: the working
    // directory), with `flags` (O_RDONLY, or O_WRONLY | O_APPEND | O_CREAT ...; O_NOFOLLOW refuses a
    // symbolic link at the last component). O_CLOEXEC and O_NOCTTY are added; O_NONBLOCK only for
    // the open. See ok() and why().
    CRegularFile(const std::string& name, int flags, mode_t mode = 0, int directory = AT_FDCWD);
    ~CRegularFile();
    CRegularFile(const CRegularFile&) = delete;
    CRegularFile& operator=(const CRegularFile&) = delete;

    bool ok() const { return m_fd >= 0; }
    int fd() const { return m_fd; }
    // Why it could not be opened: the system's text, or what sits at the path ("is a FIFO, not a
    // regular file"). Empty when ok().
    const std::string& why() const { return m_why; }
    // A path that opens this very file again (/proc/self/fd/N), for a library that takes only a
    // path: it then reads what was checked here, whatever the name leads to meanwhile. The name
    // itself where /proc is not mounted.
    std::string reopenablePath() const;
    // Hands the descriptor over to the caller (-1 when not ok()).
    int release();

private:
    std::string m_name;
    std::string m_why;
    int m_fd = -1;
};
