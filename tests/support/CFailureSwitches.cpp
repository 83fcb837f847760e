// Interposed system calls with failure switches (see CFailureSwitches.h).
#include "CFailureSwitches.h"

#include <atomic>
#include <dlfcn.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr int CALL_COUNT = 5;

// Per call: 0 passes through, anything else is the errno of a forced failure.
std::atomic<int> g_forcedErrors[CALL_COUNT];

// The next definition after ours: the C library's, or a sanitizer's in front of it.
template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// True (with errno set) when the call's switch is on.
bool forcedFailure(CFailingCall call)
{
    const int error = g_forcedErrors[static_cast<int>(call)].load();
    if (error == 0) {
        return false;
    }
    errno = error;
    return true;
}

}  // namespace

CFailureSwitch::CFailureSwitch(CFailingCall call, int error) : m_call(call)
{
    g_forcedErrors[static_cast<int>(m_call)].store(error);
}

CFailureSwitch::~CFailureSwitch()
{
    g_forcedErrors[static_cast<int>(m_call)].store(0);
}

extern "C" {

int epoll_create1(int flags)
{
    static auto* const real = next<int(int)>("epoll_create1");
    return forcedFailure(CFailingCall::EPOLL_CREATE1) ? -1 : real(flags);
}

int epoll_ctl(int epfd, int op, int fd, epoll_event* event)
{
    static auto* const real = next<int(int, int, int, epoll_event*)>("epoll_ctl");
    return forcedFailure(CFailingCall::EPOLL_CTL) ? -1 : real(epfd, op, fd, event);
}

int inotify_init1(int flags)
{
    static auto* const real = next<int(int)>("inotify_init1");
    return forcedFailure(CFailingCall::INOTIFY_INIT1) ? -1 : real(flags);
}

int inotify_add_watch(int fd, const char* path, uint32_t mask)
{
    static auto* const real = next<int(int, const char*, uint32_t)>("inotify_add_watch");
    return forcedFailure(CFailingCall::INOTIFY_ADD_WATCH) ? -1 : real(fd, path, mask);
}

int pipe2(int fds[2], int flags)
{
    static auto* const real = next<int(int*, int)>("pipe2");
    return forcedFailure(CFailingCall::PIPE2) ? -1 : real(fds, flags);
}

}  // extern "C"
