// fork() while other threads log: the child must not inherit a lock that some other thread held
// (it would wait for it forever), nor a worker thread that does not exist in it.
// One pthread_atfork trio serves the whole library. Before fork it takes every registered lock in
// the one lock order below; afterwards the parent releases them and the child makes them new
// (released), refreshes the process id, then lets each registered participant reset itself.
#pragma once

#include <pthread.h>

namespace vx {

// The one lock order of the library, outermost first. A thread may hold a lock of a later rank
// while it takes one of an earlier rank only where both are recursive and it already holds the
// earlier one (a target that logs from inside its own call).
enum class LockRank {
    CONTAINER = 0,  // a target container's mutex: the registry of targets and every call into one
    COMPONENTS = 1,  // a component registry's mutex
    LEVEL_STORE = 2,  // appends to the level store
    SYSLOG = 3,  // the library's own calls into syslog
};

// A mutex taken around fork. `recursive` tells how to make it new in the child.
void registerForkLock(pthread_mutex_t* mutex, LockRank rank, bool recursive);
void unregisterForkLock(pthread_mutex_t* mutex);

// Something that owns a thread or descriptors and must put itself right in a fork child.
class IForkChild {
public:
    // Runs in the child, single-threaded, after the locks were made new.
    virtual void resetInChild() = 0;

protected:
    ~IForkChild() = default;
};

void registerForkChild(IForkChild* participant);
void unregisterForkChild(IForkChild* participant);

}  // namespace vx
