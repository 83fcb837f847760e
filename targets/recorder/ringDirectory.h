// The directory of the rings: made private to this user, and kept from filling up with the rings
// of ended processes.
#pragma once

#include <string>

// Opens `path`, creating what is missing with mode 0700, and returns the descriptor. Throws
// CRingError when it cannot, or when another user could have placed, could change or could replace
// the directory (openPrivateDirectory).
int openRingDirectory(const std::string& path);

// `<application>.<pid>.ring`, with "/" and a leading "." of the name made "_".
std::string ringFileName(const std::string& application, int pid);

enum class ERingState { missing, ended, alive };
// Whether the file `name` exists and whether a process holds its lock (writes into it).
ERingState ringState(int dirFd, const std::string& name);
// Renames the file `name` (`<stem>.ring`) to the first free `<stem>.<n>.ring`.
void moveAside(int dirFd, const std::string& name);
// Removes the oldest rings of ended processes with this application name (the one in the
// header) until no more than `keep` of its rings remain; `current` and the rings of processes
// alive count, and are never removed. Also removes what an interrupted creation left behind.
void pruneRings(int dirFd, const std::string& application, unsigned keep, const std::string& current);
