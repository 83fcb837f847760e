// Opening the log file as a program that may run as root must, in a directory that other users
// may be able to write: no symbolic link at the last component is followed (one planted there
// would make the program append to any file), nothing but a regular file is opened (a FIFO would
// hold the log call), and in a directory that another user can write, nothing is made or reopened
// unless the directory has the sticky bit and the file is this program's user's own.
#pragma once

#include <string>
#include <sys/types.h>

// The descriptor (O_WRONLY | O_APPEND | O_CLOEXEC), created with `mode` (less the umask) where
// missing; or -1 with the reason in `why`, naming the directory and its mode where it is the
// directory's.
int openLogFile(const std::string& path, mode_t mode, std::string& why);
