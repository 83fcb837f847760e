// What vexlor-log tells a shell user whose message reached no target.
#pragma once

#include <string>

// How many log-target plug-ins the configuration has loaded into this process.
int loadedTargets();
// The configuration file the library reads for `application` (empty: none set).
std::string configFileInForce(const std::string& application);
