// Set-up and locking of CRecursiveMutex, kept out of line with its rare failure path.
#include "base/CRecursiveMutex.h"

#include <system_error>

CRecursiveMutex::CRecursiveMutex(vx::LockRank rank)
{
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) == 0) {
        if (pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) == 0) {
            pthread_mutex_init(&m_mutex, &attr);
        }
        pthread_mutexattr_destroy(&attr);
    }
    vx::registerForkLock(&m_mutex, rank, true);
}

CRecursiveMutex::~CRecursiveMutex()
{
    vx::unregisterForkLock(&m_mutex);
    pthread_mutex_destroy(&m_mutex);
}

void CRecursiveMutex::lock()
{
    const int rc = pthread_mutex_lock(&m_mutex);
    if (rc != 0) {
        throw std::system_error(rc, std::generic_category());
    }
}
