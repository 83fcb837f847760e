// Finding the controllable processes of the machine and what the system says about them.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// Every process with a bound control socket (from /proc/net/unix), by ascending pid.
std::vector<int> controllablePids();
// The short program name the kernel keeps (/proc/<pid>/comm), empty when the process is gone.
std::string programName(int pid);
// True when this user may ask `pid` (the same user, or root): others are refused by the target.
bool mayAsk(int pid);
