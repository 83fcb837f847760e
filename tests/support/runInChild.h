// Runs a part of a test in a fork child, for what may happen only once per process or must not
// touch the test process (its exit, a signal, a hang). No gtest assertion in the child: its
// result is what `body` returns, as the child's exit status.
#pragma once

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include "waitUntil.h"

// The child's exit status; -1 when it did not exit normally or did not end in time.
template <typename Body>
int runInChild(Body body)
{
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(body());
    }
    int status = 0;
    if (pid < 0) {
        return -1;
    }
    if (!waitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, std::chrono::seconds(30))) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
