// A POSIX recursive mutex owned by the object that holds it. Set-up failures are not reported:
// such a mutex reports its error when it is locked.
#pragma once

#include <pthread.h>

class CRecursiveMutex {
public:
    CRecursiveMutex()
    {
        pthread_mutexattr_t attr;
        if (pthread_mutexattr_init(&attr) != 0) {
            return;
        }
        if (pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) == 0) {
            pthread_mutex_init(&m_mutex, &attr);
        }
        pthread_mutexattr_destroy(&attr);
    }
    ~CRecursiveMutex() { pthread_mutex_destroy(&m_mutex); }
    CRecursiveMutex(const CRecursiveMutex&) = delete;
    CRecursiveMutex& operator=(const CRecursiveMutex&) = delete;

    // Throws std::system_error carrying the error number when locking fails.
    void lock();
    void unlock() { pthread_mutex_unlock(&m_mutex); }

private:
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};
