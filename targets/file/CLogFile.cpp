// Opening, re-reading, comparing and locking the log file.
#include "CLogFile.h"

#include <cerrno>
#include <cstring>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "openLogFile.h"

CLogFile::~CLogFile()
{
    unlock();
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

std::string CLogFile::open(const std::string& path, mode_t mode)
{
    std::string why;
    const int fd = openLogFile(path, mode, why);
    struct stat about { };
    if (fd < 0 || fstat(fd, &about) != 0) {
        if (fd >= 0) {
            why = std::strerror(errno);
            ::close(fd);
        }
        return why;
    }
    // Explicitly: a fork child's copy of the descriptor would keep the lock after the close.
    unlock();
    if (m_fd >= 0) {
        ::close(m_fd);
    }
    m_fd = fd;
    m_path = path;
    m_device = about.st_dev;
    m_inode = about.st_ino;
    m_size = static_cast<unsigned long long>(about.st_size);  // an existing file's size counts
    m_linked = about.st_nlink > 0;
    return std::string();
}

void CLogFile::refresh()
{
    struct stat about { };
    if (m_fd >= 0 && fstat(m_fd, &about) == 0) {
        m_size = static_cast<unsigned long long>(about.st_size);
        m_linked = about.st_nlink > 0;
    }
}

CLogFile::EPath CLogFile::pathState() const
{
    struct stat about { };
    if (lstat(m_path.c_str(), &about) != 0) {
        // Only a missing name is a reason to reopen; a passing error (EACCES, EINTR) is not.
        return errno == ENOENT ? EPath::MISSING : EPath::SAME;
    }
    return about.st_dev == m_device && about.st_ino == m_inode ? EPath::SAME : EPath::REPLACED;
}

bool CLogFile::lockForRotation()
{
    int result = -1;
    do {
        result = flock(m_fd, LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    // Another error (a file system without locks) leaves this process to rotate as before.
    m_locked = result == 0;
    return result == 0 || errno != EWOULDBLOCK;
}

void CLogFile::unlock()
{
    if (m_locked) {
        flock(m_fd, LOCK_UN);
        m_locked = false;
    }
}
