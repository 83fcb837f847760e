// A POSIX recursive mutex owned by the object that holds it, taken around fork in its rank (see
// forkSafety.h). Set-up failures are not reported: such a mutex reports its error when locked.
#pragma once

#include <pthread.h>

#include "base/forkSafety.h"

class CRecursiveMutex {
public:
    explicit CRecursiveMutex(vx::LockRank rank);
    ~CRecursiveMutex();
    CRecursiveMutex(const CRecursiveMutex&) = delete;
    CRecursiveMutex& operator=(const CRecursiveMutex&) = delete;

    // Throws std::system_error carrying the error number when locking fails.
    void lock()
    {
        if (pthread_mutex_trylock(&m_mutex) != 0) {
            lockContended();
        }
    }
    void unlock() { pthread_mutex_unlock(&m_mutex); }

private:
    void lockContended();

    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};
