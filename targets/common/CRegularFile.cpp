// See CRegularFile.h.
#include "CRegularFile.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* kindOf(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFIFO: return "a FIFO";
    case S_IFSOCK: return "a socket";
    case S_IFCHR: return "a character device";
    case S_IFBLK: return "a block device";
    case S_IFDIR: return "a directory";
    case S_IFLNK: return "a symbolic link";
    default: return "not a regular file";
    }
}

std::string notRegular(mode_t mode)
{
    return S_ISLNK(mode) ? "is a symbolic link, which is not followed"
                         : std::string("is ") + kindOf(mode) + ", not a regular file";
}

}  // namespace

CRegularFile::CRegularFile(const std::string& name, int flags, mode_t mode, int directory)
    : m_name(name)
{
    int fd = -1;
    do {
        fd = ::openat(directory, name.c_str(), flags | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, mode);
    } while (fd < 0 && errno == EINTR);
    struct stat about { };
    if (fd < 0) {
        const int error = errno;
        // The errors of a refusal say little (ELOOP or EACCES for a link, ENXIO for a FIFO without
        // a reader): name what is there instead.
        const int follow = (flags & O_NOFOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0;
        const bool other = fstatat(directory, name.c_str(), &about, follow) == 0 && !S_ISREG(about.st_mode);
        m_why = other ? notRegular(about.st_mode) : std::strerror(error);
        return;
    }
    if (fstat(fd, &about) != 0 || !S_ISREG(about.st_mode)) {
        m_why = about.st_mode == 0 ? std::strerror(errno) : notRegular(about.st_mode);
        ::close(fd);
        return;
    }
    // Later reads and writes may wait as usual (a regular file ignores the flag; this is for clarity).
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    m_fd = fd;
}

CRegularFile::~CRegularFile()
{
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

std::string CRegularFile::reopenablePath() const
{
    const std::string path = "/proc/self/fd/" + std::to_string(m_fd);
    return m_fd >= 0 && access(path.c_str(), F_OK) == 0 ? path : m_name;
}

int CRegularFile::release()
{
    const int fd = m_fd;
    m_fd = -1;
    return fd;
}
