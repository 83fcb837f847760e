// What makes a configuration or a plug-in a way in for other users.
#pragma once

#include <string>

// Why `path` (a file) is open to every user: the file itself or its directory is world-writable.
// Empty when neither is.
std::string worldWritable(const std::string& path);
