// The listening socket of a process's control target and the name it is bound to.
#pragma once

#include <string>
#include <sys/types.h>

// Listens on `pid`'s control name, or on its fallback name when another process holds that (one
// syslog warning names the holder). Sets `name` to the name bound. Throws std::runtime_error
// saying why it cannot, also when this process holds the name already (a second control target).
int listenOnControlName(pid_t pid, std::string& name);
