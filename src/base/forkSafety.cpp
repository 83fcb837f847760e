// The library's pthread_atfork trio (see forkSafety.h).
#include "base/forkSafety.h"

#include <algorithm>
#include <ctime>
#include <syslog.h>
#include <vector>

#include "base/processId.h"

namespace vx {

namespace {

// How long fork waits for a lock. A target that blocks inside a call (which it must not) would
// otherwise hang every fork of the program; after this the child gets the lock made new instead,
// and may see that target's state half-changed.
constexpr time_t LOCK_WAIT_SECONDS = 1;

struct CForkLock {
    pthread_mutex_t* mutex;
    LockRank rank;
    bool recursive;
    bool heldForFork;
};

struct CRegistry {
    // Taken first by the prepare handler, so nothing registers or leaves while fork runs.
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    std::vector<CForkLock> locks;  // in rank order, then registration order
    std::vector<IForkChild*> children;  // in registration order
};

void prepare();
void parent();
void child();

// Never destroyed: threads may still fork or log while the process exits.
CRegistry& registry()
{
    static CRegistry* const instance = [] {
        auto* created = new CRegistry;
        pthread_atfork(&prepare, &parent, &child);
        return created;
    }();
    return *instance;
}

void makeNew(pthread_mutex_t* mutex, bool recursive)
{
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_DEFAULT);
    pthread_mutex_init(mutex, &attr);
    pthread_mutexattr_destroy(&attr);
}

void prepare()
{
    CRegistry& r = registry();
    pthread_mutex_lock(&r.mutex);
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += LOCK_WAIT_SECONDS;
    for (CForkLock& lock : r.locks) {
        lock.heldForFork = pthread_mutex_timedlock(lock.mutex, &deadline) == 0;
    }
}

void parent()
{
    CRegistry& r = registry();
    bool timedOut = false;
    for (auto it = r.locks.rbegin(); it != r.locks.rend(); ++it) {
        if (it->heldForFork) {
            pthread_mutex_unlock(it->mutex);
        } else {
            timedOut = true;
        }
    }
    pthread_mutex_unlock(&r.mutex);
    if (timedOut) {
        // Plain syslog: the library's syslog lock may be the one that was busy.
        syslog(LOG_WARNING,
               "vexlor: fork() waited %lds for a logging lock held by another thread (a target "
               "blocking inside a call?) - the child starts with that lock made new",
               static_cast<long>(LOCK_WAIT_SECONDS));
    }
}

void child()
{
    refreshPidInChild();
    CRegistry& r = registry();
    // A plain mutex this thread took is released as usual. A recursive one checks its owner's
    // thread id, which is another one here, and one that another thread held (fork stopped
    // waiting for it) has no owner left: both are made new.
    for (CForkLock& lock : r.locks) {
        if (!lock.heldForFork || pthread_mutex_unlock(lock.mutex) != 0) {
            makeNew(lock.mutex, lock.recursive);
        }
    }
    pthread_mutex_unlock(&r.mutex);
    for (IForkChild* participant : r.children) {
        participant->resetInChild();
    }
}

// Registered while the library loads, so a fork before the first library call is covered too.
const bool registeredAtLoad = (registry(), true);

}  // namespace

void registerForkLock(pthread_mutex_t* mutex, LockRank rank, bool recursive)
{
    CRegistry& r = registry();
    pthread_mutex_lock(&r.mutex);
    const auto at = std::upper_bound(r.locks.begin(), r.locks.end(), rank,
                                     [](LockRank value, const CForkLock& lock) { return value < lock.rank; });
    r.locks.insert(at, CForkLock{mutex, rank, recursive, false});
    pthread_mutex_unlock(&r.mutex);
}

void unregisterForkLock(pthread_mutex_t* mutex)
{
    CRegistry& r = registry();
    pthread_mutex_lock(&r.mutex);
    r.locks.erase(
        std::remove_if(r.locks.begin(), r.locks.end(), [mutex](const CForkLock& lock) { return lock.mutex == mutex; }),
        r.locks.end());
    pthread_mutex_unlock(&r.mutex);
}

void registerForkChild(IForkChild* participant)
{
    CRegistry& r = registry();
    pthread_mutex_lock(&r.mutex);
    r.children.push_back(participant);
    pthread_mutex_unlock(&r.mutex);
}

void unregisterForkChild(IForkChild* participant)
{
    CRegistry& r = registry();
    pthread_mutex_lock(&r.mutex);
    r.children.erase(std::remove(r.children.begin(), r.children.end(), participant), r.children.end());
    pthread_mutex_unlock(&r.mutex);
}

}  // namespace vx
