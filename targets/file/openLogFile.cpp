// See openLogFile.h.
#include "openLogFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CRegularFile.h"

namespace {

// Root and this program's user are trusted; a directory's owner can give himself any right, so
// another owner is as good as a write permission for him. A group other than root's or this
// program's may hold other users.
bool othersMayWrite(const struct stat& directory)
{
    const uid_t owner = directory.st_uid;
    const gid_t group = directory.st_gid;
    return (owner != 0 && owner != geteuid()) || (directory.st_mode & S_IWOTH) != 0 ||
        ((directory.st_mode & S_IWGRP) != 0 && group != 0 && group != getegid());
}

std::string described(const std::string& directory, const struct stat& about)
{
    char text[96];
    std::snprintf(text, sizeof text, " (mode %04o, owner uid %u, group gid %u)",
                  static_cast<unsigned>(about.st_mode & 07777), static_cast<unsigned>(about.st_uid),
                  static_cast<unsigned>(about.st_gid));
    return directory + text;
}

// Closes the directory descriptor on every path.
struct CDirectory {
    int fd;
    ~CDirectory()
    {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

}  // namespace

int openLogFile(const std::string& path, mode_t mode, std::string& why)
{
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    // The directory is judged and the file opened through one descriptor: what is judged is what is used.
    const CDirectory at{::open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    struct stat about { };
    if (at.fd < 0 || fstat(at.fd, &about) != 0) {
        why = "its directory " + directory + ": " + std::strerror(errno);
        return -1;
    }
    const bool shared = othersMayWrite(about);
    if (shared && (about.st_mode & S_ISVTX) == 0) {
        why = "its directory " + described(directory, about) +
            " can be written by other users and has no sticky bit: they could put a link or another file in its place";
        return -1;
    }
    CRegularFile file(name, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW, mode, at.fd);
    if (!file.ok()) {
        why = file.why();
        return -1;
    }
    struct stat own { };
    if (shared && (fstat(file.fd(), &own) != 0 || own.st_uid != geteuid())) {
        why = "it belongs to uid " + std::to_string(own.st_uid) + ", not to this program's user, and its directory " +
            described(directory, about) + " can be written by other users";
        return -1;
    }
    return file.release();
}
