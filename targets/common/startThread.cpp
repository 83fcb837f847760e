// Starting a target's thread (see startThread.h).
#include "startThread.h"

#include <csignal>

int startThread(pthread_t& thread, const char* name, void* (*main)(void*), void* argument)
{
    // A new thread inherits its creator's mask: block everything around the creation only.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    const int rc = pthread_create(&thread, nullptr, main, argument);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (rc == 0) {
        pthread_setname_np(thread, name);
    }
    return rc;
}
