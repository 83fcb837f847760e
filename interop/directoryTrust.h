// Which directories another local user can change, by the one rule that the targets and the tools
// share (docs/security.md): root and this process's user are trusted, everybody else is not.
#pragma once

#include <string>
#include <sys/stat.h>

// Who besides root and this process's (effective) user may add, remove or rename entries in a
// directory. An owner can give himself any right, so another owner counts as a writer; a group
// other than root's and this process's may hold other users.
enum class EOtherWriters { NONE, OWNER, EVERYONE, GROUP };
EOtherWriters otherWriters(const struct stat& directory);

// Whether nobody but root and this user can remove or replace `entry` in `directory`: nobody else
// may write the directory, or it is sticky (as /tmp), owned by root or this user, and so is the
// entry, so that only they can remove or rename it.
bool entryIsSafe(const struct stat& directory, const struct stat& entry);

// "uid 1001", "every user (mode 0777)", "group gid 100 (mode 0775)"; empty for NONE.
std::string describeOtherWriters(const struct stat& directory);

// Opens the directory `path` (absolute) and returns its descriptor, or -1 with `error` saying what
// failed and errno why (EPERM for a refusal by the rules here). A symbolic
// link on the way is followed only when it belongs to root or this user and lies where nobody else
// can replace it (entryIsSafe), so a link that another user planted leads nowhere. With `create`,
// a missing directory is made with mode 0700, and only inside a directory that no other user can
// write. `parent`, when given, receives the status of the directory that holds the last one.
int openDirectoryOfTrustedPath(const std::string& path, bool create, std::string& error, struct stat* parent = nullptr);

// A directory of this user's own: opened as above, it must belong to this user, be writable by
// nobody else, and lie where nobody else can rename it. The recorder keeps its rings in one.
int openPrivateDirectory(const std::string& path, bool create, std::string& error);
