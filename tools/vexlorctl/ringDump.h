// vexlorctl's commands for the recorder target's rings; each returns the exit status.
#pragma once

#include <string>
#include <vector>

// vexlorctl rings [--dir=DIR]: one line per ring file.
int ringsCommand(const std::vector<std::string>& args);
// vexlorctl dump <pid|application|file> [--last N] [--pattern=P] [--utc] [--dir=DIR]
int dumpCommand(const std::vector<std::string>& args);
