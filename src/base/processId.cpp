// Cached process id, refreshed in fork children (see processId.h).
#include "base/processId.h"

#include <atomic>
#include <unistd.h>

namespace vx {

namespace {

std::atomic<int> cachedPid{0};

}  // namespace

int currentPid()
{
    int pid = cachedPid.load(std::memory_order_relaxed);
    if (pid == 0) {
        pid = getpid();
        cachedPid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

void refreshPidInChild() { cachedPid.store(getpid(), std::memory_order_relaxed); }

}  // namespace vx
