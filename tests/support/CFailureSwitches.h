// Makes chosen system calls of the watcher's set-up fail, to reach their failure paths with the
// real library. The test executable defines these functions, so they take precedence over the C
// library's for the library too; while no switch is on they pass through to the real ones.
#pragma once

enum class CFailingCall { EPOLL_CREATE1, INOTIFY_INIT1, INOTIFY_ADD_WATCH, PIPE2, EPOLL_CTL };

// Scoped: while it lives, every call of `call` fails with EMFILE.
class CFailureSwitch {
public:
    explicit CFailureSwitch(CFailingCall call);
    ~CFailureSwitch();
    CFailureSwitch(const CFailureSwitch&) = delete;
    CFailureSwitch& operator=(const CFailureSwitch&) = delete;

private:
    CFailingCall m_call;
};
