// The rule of directories another user can change, and a path walk that follows no link of theirs.
#include "directoryTrust.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

bool trusted(uid_t uid) { return uid == 0 || uid == geteuid(); }

// Closes the descriptor it holds on every path.
class CFd {
public:
    explicit CFd(int fd = -1)
        : m_fd(fd)
    {
    }
    ~CFd() { reset(-1); }
    CFd(const CFd&) = delete;
    CFd& operator=(const CFd&) = delete;
    int get() const { return m_fd; }
    void reset(int fd)
    {
        if (m_fd >= 0) {
            close(m_fd);
        }
        m_fd = fd;
    }
    int release()
    {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }

private:
    int m_fd;
};

int fail(std::string& error, const std::string& text, int number)
{
    error = text;
    errno = number;
    return -1;
}

}  // namespace

EOtherWriters otherWriters(const struct stat& directory)
{
    if (!trusted(directory.st_uid)) {
        return EOtherWriters::OWNER;
    }
    if ((directory.st_mode & S_IWOTH) != 0) {
        return EOtherWriters::EVERYONE;
    }
    if ((directory.st_mode & S_IWGRP) != 0 && directory.st_gid != 0 && directory.st_gid != getegid()) {
        return EOtherWriters::GROUP;
    }
    return EOtherWriters::NONE;
}

bool entryIsSafe(const struct stat& directory, const struct stat& entry)
{
    return otherWriters(directory) == EOtherWriters::NONE ||
        ((directory.st_mode & S_ISVTX) != 0 && trusted(directory.st_uid) && trusted(entry.st_uid));
}

std::string describeOtherWriters(const struct stat& directory)
{
    char mode[16];
    std::snprintf(mode, sizeof mode, " (mode %04o)", static_cast<unsigned>(directory.st_mode & 07777));
    switch (otherWriters(directory)) {
    case EOtherWriters::OWNER: return "uid " + std::to_string(directory.st_uid);
    case EOtherWriters::EVERYONE: return std::string("every user") + mode;
    case EOtherWriters::GROUP: return "group gid " + std::to_string(directory.st_gid) + mode;
    case EOtherWriters::NONE: break;
    }
    return std::string();
}

int openDirectoryOfTrustedPath(const std::string& path, bool create, std::string& error, struct stat* parent)
{
    if (path.empty() || path[0] != '/') {
        return fail(error, path + ": not an absolute path", EINVAL);
    }
    // The root through the link to it where /proc is mounted: an emulator that runs programs of
    // another architecture on a directory of their own libraries (qemu-user with -L) maps an open
    // of "/" onto that directory, but not this link.
    CFd at(open("/proc/self/root", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (at.get() < 0) {
        at.reset(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    struct stat here { };
    if (at.get() < 0 || fstat(at.get(), &here) != 0) {
        return fail(error, "/", errno);
    }
    std::string walked;
    for (std::size_t start = 1; start < path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string name = path.substr(start, end - start);
        start = end + 1;
        if (name.empty() || name == ".") {
            continue;
        }
        const std::string shown = walked + "/" + name;
        struct stat entry { };
        int flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        if (fstatat(at.get(), name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT || !create) {
                return fail(error, shown, errno);
            }
            if (otherWriters(here) != EOtherWriters::NONE && (here.st_mode & S_ISVTX) == 0) {
                return fail(error,
                            "will not make " + shown + ": " + (walked.empty() ? "/" : walked) + " may be written by " +
                                describeOtherWriters(here),
                            EPERM);
            }
            if (mkdirat(at.get(), name.c_str(), 0700) != 0 && errno != EEXIST) {
                return fail(error, "cannot make the directory " + shown, errno);
            }
            // Whatever the umask; it is ours unless someone was quicker, which the next look shows.
            CFd made(openat(at.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (made.get() >= 0 && fstat(made.get(), &entry) == 0 && entry.st_uid == geteuid()) {
                fchmod(made.get(), 0700);
            }
            if (fstatat(at.get(), name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) != 0) {
                return fail(error, shown, errno);
            }
        }
        if (S_ISLNK(entry.st_mode)) {
            if (!trusted(entry.st_uid) || !entryIsSafe(here, entry)) {
                return fail(error,
                            shown + " is a symbolic link " +
                                (trusted(entry.st_uid) ? "in a directory that other users may write"
                                                       : "of uid " + std::to_string(entry.st_uid)) +
                                ", which is not followed",
                            EPERM);
            }
            flags &= ~O_NOFOLLOW;
        }
        if (parent != nullptr) {
            *parent = here;
        }
        CFd next(openat(at.get(), name.c_str(), flags));
        if (next.get() < 0 || fstat(next.get(), &here) != 0) {
            return fail(error, shown, errno);
        }
        at.reset(next.release());
        walked = shown;
    }
    if (parent != nullptr && walked.empty()) {
        *parent = here;
    }
    // The last one for reading its entries: reopened through its own descriptor, not by name again.
    const int fd = openat(at.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return fd >= 0 ? fd : fail(error, walked.empty() ? "/" : walked, errno);
}

int openPrivateDirectory(const std::string& path, bool create, std::string& error)
{
    struct stat parent { };
    CFd dir(openDirectoryOfTrustedPath(path, create, error, &parent));
    struct stat own { };
    if (dir.get() < 0) {
        return -1;
    }
    if (fstat(dir.get(), &own) != 0) {
        return fail(error, path, errno);
    }
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(own.st_mode & 07777));
    if (own.st_uid != geteuid()) {
        return fail(error, path + " belongs to uid " + std::to_string(own.st_uid) + ", not to this user", EPERM);
    }
    if ((own.st_mode & 022) != 0) {
        return fail(error, path + " (mode " + mode + ") may be written by other users", EPERM);
    }
    // Whoever may rename the directory may replace it.
    if (!entryIsSafe(parent, own)) {
        return fail(error, path + ": its parent directory may be written by " + describeOtherWriters(parent), EPERM);
    }
    return dir.release();
}
