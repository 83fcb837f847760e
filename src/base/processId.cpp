// Cached process id, refreshed in fork children (see processId.h).
#include "base/processId.h"

#include <atomic>
#include <pthread.h>
#include <unistd.h>

namespace vx {

namespace {

std::atomic<int> cachedPid{0};

void refreshInChild()
{
    cachedPid.store(getpid(), std::memory_order_relaxed);
}

// Registered while the library loads, before any application thread can fork through us.
const bool registered = [] {
    cachedPid.store(getpid(), std::memory_order_relaxed);
    return pthread_atfork(nullptr, nullptr, &refreshInChild) == 0;
}();

}  // namespace

int currentPid()
{
    int pid = cachedPid.load(std::memory_order_relaxed);
    if (pid == 0) {
        // Only reachable from another static initialiser that runs before ours.
        pid = getpid();
        cachedPid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

}  // namespace vx
