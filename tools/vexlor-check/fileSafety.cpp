// Permission checks of vexlor-check: the file and the directory that holds it.
#include "fileSafety.h"

#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool writableByAll(const std::string& path)
{
    struct stat status { };
    return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IWOTH) != 0;
}

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

bool trustedOwner(uid_t uid) { return uid == 0 || uid == geteuid(); }

// Who besides this user and root may add or replace entries in the directory `status`
// describes; empty when nobody. Group write counts unless the group is root's.
std::string otherWriters(const struct stat& status)
{
    if (!trustedOwner(status.st_uid)) {
        return "belongs to uid " + std::to_string(status.st_uid);
    }
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(status.st_mode & 07777));
    if ((status.st_mode & S_IWOTH) != 0) {
        return std::string("is writable by every user (mode ") + mode + ")";
    }
    if ((status.st_mode & S_IWGRP) != 0 && status.st_gid != 0) {
        return "is writable by group " + std::to_string(status.st_gid) + " (mode " + mode + ")";
    }
    return std::string();
}

}  // namespace

std::string unsafeDestination(const std::string& path)
{
    struct stat file { };
    const bool exists = lstat(path.c_str(), &file) == 0;
    if (exists && S_ISLNK(file.st_mode)) {
        return "\"" + path + "\" is a symbolic link: whoever made it chooses the file that would be overwritten";
    }
    const std::string directory = directoryOf(path);
    struct stat status { };
    if (stat(directory.c_str(), &status) != 0) {
        return std::string();  // writing will say why it cannot
    }
    const std::string writers = otherWriters(status);
    // In a sticky directory nobody else can remove or rename a file of ours.
    if (writers.empty() ||
        ((status.st_mode & S_ISVTX) != 0 && trustedOwner(status.st_uid) && exists && trustedOwner(file.st_uid))) {
        return std::string();
    }
    return "its directory \"" + directory + "\" " + writers +
        ": another user could put a link or a file of their own in its place";
}

std::string worldWritable(const std::string& path)
{
    if (writableByAll(path)) {
        return "\"" + path + "\" is world-writable";
    }
    const std::string directory = directoryOf(path);
    if (writableByAll(directory)) {
        return "it lies in the world-writable directory \"" + directory + "\"";
    }
    return std::string();
}
