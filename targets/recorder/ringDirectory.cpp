// The rings' directory: its creation and checks, the names of ring files, and keep=.
#include "ringDirectory.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "CDescriptor.h"
#include "CRingFile.h"
#include "directoryTrust.h"
#include "ringFormat.h"
#include "ringReader.h"

namespace {

constexpr const char SUFFIX[] = ".ring";
constexpr const char CREATING[] = ".creating";
constexpr long long ABANDONED_SECONDS = 60;  // a creation takes milliseconds; older is left over

bool endsWith(const std::string& text, const char* suffix)
{
    const std::string tail(suffix);
    return text.size() > tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// A test lock: it conflicts with a writer's lock only, never with another test.
ERingState lockState(int fd)
{
    if (flock(fd, LOCK_SH | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? ERingState::alive : ERingState::ended;
    }
    flock(fd, LOCK_UN);
    return ERingState::ended;
}

struct CEndedRing {
    long long seconds;
    int microseconds;
    std::string name;
};

// The header's application name and creation time of the ring file `name`; false for anything
// else (another user's file, a damaged header, a name being changed).
bool readHeader(int fd, CRingHeader& header)
{
    struct stat status { };
    unsigned char bytes[vexlor_ring::HEADER_SIZE];
    std::string error;
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
        pread(fd, bytes, sizeof bytes, 0) == static_cast<ssize_t>(sizeof bytes) &&
        parseRingHeader(bytes, sizeof bytes, header, error) && header.applicationKnown;
}

// A creation that a crash interrupted: unlocked, and older than any creation takes.
void removeIfAbandoned(int dirFd, const std::string& name)
{
    CDescriptor fd(openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status { };
    if (fd.get() >= 0 && fstat(fd.get(), &status) == 0 && status.st_mtime + ABANDONED_SECONDS < time(nullptr) &&
        lockState(fd.get()) == ERingState::ended) {
        unlinkat(dirFd, name.c_str(), 0);
    }
}

}  // namespace

int openRingDirectory(const std::string& path)
{
    std::string error;
    const int fd = openPrivateDirectory(path, true, error);
    if (fd < 0) {
        throw CRingError(error, errno);
    }
    return fd;
}

std::string ringFileName(const std::string& application, int pid)
{
    std::string name = application.substr(0, vexlor_ring::header::NAME_CAPACITY);
    std::replace(name.begin(), name.end(), '/', '_');
    if (name.empty() || name[0] == '.') {
        name.insert(name.begin(), '_');
    }
    return name + "." + std::to_string(pid) + SUFFIX;
}

ERingState ringState(int dirFd, const std::string& name)
{
    CDescriptor fd(openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (fd.get() < 0) {
        return errno == ENOENT ? ERingState::missing : ERingState::ended;
    }
    return lockState(fd.get());
}

void moveAside(int dirFd, const std::string& name)
{
    const std::string stem = name.substr(0, name.size() - (sizeof SUFFIX - 1));
    for (int n = 1; n < 1000; ++n) {
        const std::string aside = stem + "." + std::to_string(n) + SUFFIX;
        struct stat status { };
        if (fstatat(dirFd, aside.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT) {
            renameat(dirFd, name.c_str(), dirFd, aside.c_str());
            return;
        }
    }
}

void pruneRings(int dirFd, const std::string& application, unsigned keep, const std::string& current)
{
    DIR* dir = fdopendir(dup(dirFd));
    if (dir == nullptr) {
        return;
    }
    std::vector<CEndedRing> ended;
    unsigned kept = 1;  // `current`
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name[0] == '.' && endsWith(name, CREATING)) {
            removeIfAbandoned(dirFd, name);
        }
        if (name[0] == '.' || !endsWith(name, SUFFIX) || name == current) {
            continue;
        }
        CDescriptor fd(openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        CRingHeader header;
        if (fd.get() < 0 || !readHeader(fd.get(), header) || header.application != application) {
            continue;
        }
        if (lockState(fd.get()) == ERingState::alive) {
            ++kept;
        } else {
            ended.push_back({header.createdSeconds, header.createdMicroseconds, name});
        }
    }
    closedir(dir);
    std::sort(ended.begin(), ended.end(), [](const CEndedRing& a, const CEndedRing& b) {
        return a.seconds != b.seconds ? a.seconds > b.seconds : a.microseconds > b.microseconds;
    });
    for (std::size_t i = keep > kept ? keep - kept : 0; i < ended.size(); ++i) {
        unlinkat(dirFd, ended[i].name.c_str(), 0);
    }
}
