// Whether the program still follows its configuration file. The library watches the file in force
// with inotify and re-reads it when it is written in place; a rename over the file (sed -i, mv, a
// deployment tool's temporary file) or its removal ends that watch for good, and changes are no
// longer read. Nothing in the library's interface tells, so the kernel is asked.
#pragma once

#include <string>

enum class EConfigState { FOLLOWED, NOT_FOLLOWED, MISSING };

// The file the library reads for the application name `appname`: the per-application file when
// the name is set and its file exists, else the default one (under VEXLOR_CONFIG_DIR).
std::string configFileInForce(const std::string& appname);
// MISSING when nothing is at `path`; FOLLOWED when an inotify watch of this process holds the file
// that is there now, as the library's does while it follows the file; else NOT_FOLLOWED.
EConfigState configState(const std::string& path);
// The "config" line of the control protocol for the current application name.
std::string configLine();
