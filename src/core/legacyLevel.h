// The legacy per-program level file: one "<program> <level>" line per program sets the process's
// syslog priority mask; SIGUSR1 re-reads it while the program runs.
#pragma once

namespace vx {

// Run once per process right after openlog: applies the program's level (adding a default entry
// when there is none), announces it, and installs the SIGUSR1 re-read.
void applyLegacyLevelFile();

// The program's level from the file, or -1 when there is no usable entry.
int readLegacyLevel();

// What each SIGUSR1 leads to: one re-read and one mask update (run outside the signal handler).
void onLevelSignal();

}  // namespace vx
