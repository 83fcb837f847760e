// The process id for every record without a system call per record.
#pragma once

namespace vx {

// Exactly what getpid() returns now: the value is kept by the library and refreshed in the child
// after fork() (see forkSafety.h). Children made by raw clone() or vfork() that go on logging
// without exec are not covered.
int currentPid();

// For the fork child handler only.
void refreshPidInChild();

}  // namespace vx
