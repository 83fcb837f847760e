// What makes a configuration or a plug-in a way in for other users.
#pragma once

#include <string>

// Why `path` (a file) is open to every user: the file itself or its directory is world-writable.
// Empty when neither is.
std::string worldWritable(const std::string& path);

// Why writing `path` could let another user choose what is overwritten: it is a symbolic link, or
// its directory is writable by a user other than this one and root (unless the directory is
// sticky and the file exists and belongs to one of them). Empty when neither is.
std::string unsafeDestination(const std::string& path);
