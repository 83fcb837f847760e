// The process id for every record without a system call per record.
#pragma once

#include <atomic>

namespace vx {

// The kept value, 0 until the first record asks; fetchPid() reads and keeps it.
extern std::atomic<int> cachedPid;
int fetchPid();

// Exactly what getpid() returns now: the value is kept by the library and refreshed in the child
// after fork() (see forkSafety.h). Children made by raw clone() or vfork() that go on logging
// without exec are not covered.
inline int currentPid()
{
    const int pid = cachedPid.load(std::memory_order_relaxed);
    return pid != 0 ? pid : fetchPid();
}

// For the fork child handler only.
void refreshPidInChild();

}  // namespace vx
