// Finding the controllable processes of the machine and what the system says about them.
#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

#include "unixSockets.h"

// The listening sockets with a control name (from /proc/net/unix), by the pid each name gives:
// names only, whoever holds them (see controlProtocol.h). The plain name comes first.
using CControlNames = std::map<int, std::vector<std::string>>;
CControlNames controlNames();
// Every pid with a control name, ascending.
std::vector<int> controllablePids();
// The short program name the kernel keeps (/proc/<pid>/comm), empty when the process is gone.
std::string programName(int pid);
// True when this user may ask `pid` (the same user, or root): others are refused by the target.
bool mayAsk(int pid);
