// Interposed system calls with failure switches (see CFailureSwitches.h).
#include "CFailureSwitches.h"

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

std::atomic<bool> g_failing[5];  // indexed by CFailingCall

// Fails with EMFILE while the call's switch is on, else calls the next definition after ours
// (the C library's, or a sanitizer's in front of it).
template <CFailingCall call, typename... Args>
int failOrPass(const char* name, Args... args)
{
    static auto* const real = reinterpret_cast<int (*)(Args...)>(dlsym(RTLD_NEXT, name));
    if (g_failing[static_cast<int>(call)].load()) {
        errno = EMFILE;
        return -1;
    }
    return real(args...);
}

}  // namespace

CFailureSwitch::CFailureSwitch(CFailingCall call) : m_call(call) { g_failing[static_cast<int>(m_call)].store(true); }

CFailureSwitch::~CFailureSwitch() { g_failing[static_cast<int>(m_call)].store(false); }

extern "C" {
int epoll_create1(int flags) { return failOrPass<CFailingCall::EPOLL_CREATE1>("epoll_create1", flags); }
int epoll_ctl(int epfd, int op, int fd, epoll_event* event)
{
    return failOrPass<CFailingCall::EPOLL_CTL>("epoll_ctl", epfd, op, fd, event);
}
int inotify_init1(int flags) { return failOrPass<CFailingCall::INOTIFY_INIT1>("inotify_init1", flags); }
int inotify_add_watch(int fd, const char* path, uint32_t mask)
{
    return failOrPass<CFailingCall::INOTIFY_ADD_WATCH>("inotify_add_watch", fd, path, mask);
}
int pipe2(int fds[2], int flags) { return failOrPass<CFailingCall::PIPE2>("pipe2", fds, flags); }
}
