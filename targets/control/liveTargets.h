// The counters and states of the shipped targets loaded in this process, as the control target
// answers them (see targetStats.h for how it reaches them).
#pragma once

#include <string>
#include <utility>
#include <vector>

struct CTargetView {
    std::string kind;
    std::string name;
    std::string state;  // empty while it works
    std::vector<std::pair<std::string, unsigned long long>> counters;  // written, dropped, lost, suppressed, ...
};

// Every shipped target of every loaded library, by name.
std::vector<CTargetView> liveTargets();
// One "target" line of the control protocol per target (see controlProtocol.h).
std::string targetLines();
