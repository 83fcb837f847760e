// Opening, re-reading and comparing the log file.
#include "CLogFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

CLogFile::~CLogFile()
{
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

int CLogFile::open(const std::string& path, mode_t mode)
{
    int fd = -1;
    do {
        fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, mode);
    } while (fd < 0 && errno == EINTR);
    struct stat about { };
    if (fd < 0 || fstat(fd, &about) != 0) {
        const int error = errno;
        if (fd >= 0) {
            ::close(fd);
        }
        return error;
    }
    if (m_fd >= 0) {
        ::close(m_fd);
    }
    m_fd = fd;
    m_path = path;
    m_device = about.st_dev;
    m_inode = about.st_ino;
    m_size = static_cast<unsigned long long>(about.st_size);  // an existing file's size counts
    m_linked = about.st_nlink > 0;
    return 0;
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
    if (stat(m_path.c_str(), &about) != 0) {
        // Only a missing name is a reason to reopen; a passing error (EACCES, EINTR) is not.
        return errno == ENOENT ? EPath::MISSING : EPath::SAME;
    }
    return about.st_dev == m_device && about.st_ino == m_inode ? EPath::SAME : EPath::REPLACED;
}
