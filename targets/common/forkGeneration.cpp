// See forkGeneration.h.
#include "forkGeneration.h"

#include <atomic>
#include <new>
#include <pthread.h>

namespace {

std::atomic<unsigned> g_generation{0};

void onForkChild() { g_generation.fetch_add(1, std::memory_order_relaxed); }

// Registered when the plug-in loads; dlclose unregisters the handler with the plug-in.
const bool g_registered = pthread_atfork(nullptr, nullptr, &onForkChild) == 0;

}  // namespace

unsigned processGeneration()
{
    (void)g_registered;
    return g_generation.load(std::memory_order_relaxed);
}

void freeInForkChild(std::mutex& mutex)
{
    if (mutex.try_lock()) {
        mutex.unlock();
    } else {
        new (&mutex) std::mutex;  // held by a thread that does not exist in the child
    }
}

void lockInForkChild(pthread_mutex_t& mutex)
{
    if (pthread_mutex_trylock(&mutex) != 0) {
        pthread_mutex_init(&mutex, nullptr);  // held by a thread that does not exist in the child
        pthread_mutex_lock(&mutex);
    }
}
