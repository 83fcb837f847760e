// Reading a configuration once, and handing those bytes to the library's reader unchanged.
#include "fileContent.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Far above any configuration (the library's lines are at most 1022 bytes); keeps a file that
// another user makes grow without end from filling memory.
constexpr off_t MAX_CONTENT = 16 << 20;

bool writeAll(int fd, const std::string& content)
{
    for (std::size_t written = 0; written < content.size();) {
        const ssize_t n = write(fd, content.data() + written, content.size() - written);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        written += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

bool readOnce(const std::string& path, std::string& content, std::string& error)
{
    // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused below.
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    struct stat status { };
    if (fd < 0 || fstat(fd, &status) != 0) {
        error = std::string("cannot be read: ") + std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
        error = "not a regular file: programs treat it as missing";
    }
    content.clear();
    char buffer[65536];
    while (error.empty()) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            error = std::string("cannot be read: ") + std::strerror(errno);
        } else if (n == 0) {
            break;
        } else if (content.size() + static_cast<std::size_t>(n) > static_cast<std::size_t>(MAX_CONTENT)) {
            error = "larger than 16 MiB: no configuration file";
        } else {
            content.append(buffer, static_cast<std::size_t>(n));
        }
    }
    if (fd >= 0) {
        close(fd);
    }
    return error.empty();
}

CMemoryFile::CMemoryFile(const std::string& content)
    : m_fd(memfd_create("vexlor-check", MFD_CLOEXEC | MFD_ALLOW_SEALING))
{
    if (m_fd >= 0 && !writeAll(m_fd, content)) {
        close(m_fd);
        m_fd = -1;
    }
    // Only this process holds it; the seals say so to the kernel too, where it knows them.
    if (m_fd >= 0) {
        fcntl(m_fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
    }
}

CMemoryFile::~CMemoryFile()
{
    if (m_fd >= 0) {
        close(m_fd);
    }
}
