// Set-up and locking of CRecursiveMutex, kept out of line with its rare failure path.
#include "base/CRecursiveMutex.h"

#include <cstddef>
#include <system_error>

#include "base/platformTricks.h"

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

// The log path holds the lock only while it hands one record to the targets, a few tens of
// nanoseconds with fast targets. A thread that finds it taken therefore watches it for a while
// before it sleeps in the kernel: sleeping and being woken cost far more than the wait, and turned
// two logging threads into a queue of system calls. Watching reads the lock word only (glibc's
// futex word, zero while the mutex is free), so the holder's cache line is not taken away from it
// until the lock looks free. A mutex this thread holds never gets here: trylock takes it again.
void CRecursiveMutex::lockContended()
{
#if defined(VEXLOR_WATCH_MUTEX_WORD)
    static_assert(offsetof(pthread_mutex_t, __data.__lock) == 0 && sizeof(m_mutex.__data.__lock) == sizeof(int),
                  "glibc's mutex no longer starts with its int lock word: build with VEXLOR_PORTABLE");
    constexpr int SPINS = 200;
    for (int spin = 0; spin < SPINS; ++spin) {
        if (__atomic_load_n(&m_mutex.__data.__lock, __ATOMIC_RELAXED) == 0 && pthread_mutex_trylock(&m_mutex) == 0) {
            return;
        }
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
        __asm__ __volatile__("yield");
#endif
    }
#endif
    const int rc = pthread_mutex_lock(&m_mutex);
    if (rc != 0) {
        throw std::system_error(rc, std::generic_category());
    }
}
