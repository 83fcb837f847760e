// Cached process id, refreshed in fork children (see processId.h).
#include "base/processId.h"

#include <atomic>
#include <unistd.h>

namespace vx {

std::atomic<int> cachedPid{0};

int fetchPid()
{
    const int pid = getpid();
    cachedPid.store(pid, std::memory_order_relaxed);
    return pid;
}

void refreshPidInChild() { cachedPid.store(getpid(), std::memory_order_relaxed); }

}  // namespace vx
