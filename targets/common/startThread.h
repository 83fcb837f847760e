// The one way a shipped target starts a thread: with every signal blocked, so that a signal meant for
// the application (SIGUSR1 among them) never runs its handler on a target's thread, and with a
// name that `top -H` and `ps -L` show.
#pragma once

#include <pthread.h>

// Starts `main(argument)` on a new thread named `name` (at most 15 characters, "vexlor-..."). The
// caller's signal mask is unchanged afterwards. 0, or the error number of pthread_create.
int startThread(pthread_t& thread, const char* name, void* (*main)(void*), void* argument);
