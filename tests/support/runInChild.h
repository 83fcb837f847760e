// Forks for a test: a part of it that may happen only once per process or must not touch the
// test process (its exit, a signal, a hang), and the children that fork tests make themselves.
#pragma once

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "CTempDir.h"
#include "waitUntil.h"

// fork() once every other thread of this process sleeps. GCC 12's AddressSanitizer takes no lock
// around fork: a thread caught inside its allocator (a thread that is still starting, for one)
// leaves the allocator's lock held in the child for good, and the child hangs at its next free.
// Gives up waiting after a few seconds and forks all the same.
inline pid_t forkWhenOthersSleep()
{
    const std::string self = std::to_string(gettid());
    const auto othersSleep = [&] {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        return std::none_of(begin(tasks), end(tasks), [&](const std::filesystem::directory_entry& task) {
            const std::string line = readFile(task.path() / "stat");
            const std::size_t name = line.rfind(')');  // the state follows the name
            const char state = name != std::string::npos && name + 2 < line.size() ? line[name + 2] : 'S';
            return task.path().filename() != self && (state == 'R' || state == 'D');
        });
    };
    waitUntil(othersSleep, std::chrono::seconds(5));
    return fork();
}

// Waits for the child `pid` and returns its wait status; kills it after `limit` (a hang guard,
// never a speed check), so no child outlives its test. A failed fork (pid -1) is no normal exit,
// and never reaches waitpid or kill, where -1 means every child or every process.
inline int reapChild(pid_t pid, std::chrono::seconds limit)
{
    int status = -1;
    if (pid > 0 && !waitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, limit)) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    return status;
}

// When runInChild forks: once the other threads sleep, or at once (for a test of forks that
// meet running threads on purpose).
enum class EForkMoment { QUIET, NOW };

// Runs `body` in a fork child, whose result is what `body` returns, as the child's exit status:
// no gtest assertion in the child. The status, or -1 when it did not exit normally or did not end
// in time.
template <typename Body>
int runInChild(Body body, EForkMoment moment = EForkMoment::QUIET)
{
    const pid_t pid = moment == EForkMoment::QUIET ? forkWhenOthersSleep() : fork();
    if (pid == 0) {
        _exit(body());
    }
    const int status = reapChild(pid, std::chrono::seconds(30));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
