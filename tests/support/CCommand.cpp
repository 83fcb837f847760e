// fork/exec with pipes, the emulator prefix of a cross build, and bounded waits.
#include "CCommand.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int LIMIT_MS = 60000;

// The emulator's command line (VEXLOR_TEST_EMULATOR_COMMAND, blank-separated), then argv.
std::vector<std::string> withEmulator(const std::vector<std::string>& argv)
{
    std::vector<std::string> full;
    std::istringstream emulator(VEXLOR_TEST_EMULATOR_COMMAND);
    for (std::string word; emulator >> word;) {
        full.push_back(word);
    }
    full.insert(full.end(), argv.begin(), argv.end());
    return full;
}

// In the child: wires the pipes, drops to `uid`, runs the program. Never returns.
[[noreturn]] void execute(const std::vector<std::string>& argv, int input, int output, int error, int asUid)
{
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(error, STDERR_FILENO);
    if (asUid >= 0 && (setgroups(0, nullptr) != 0 || setgid(static_cast<gid_t>(asUid)) != 0 ||
                       setuid(static_cast<uid_t>(asUid)) != 0)) {
        _exit(126);
    }
    std::vector<char*> args;
    for (const std::string& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    execvp(args[0], args.data());
    _exit(127);
}

int statusOf(int waitStatus)
{
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 128 + WTERMSIG(waitStatus);
}

// Waits for `pid`, killing it after the limit.
int reap(pid_t pid)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(LIMIT_MS);
    int waitStatus = 0;
    while (waitpid(pid, &waitStatus, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &waitStatus, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return statusOf(waitStatus);
}

void makePipe(int fds[2])
{
    if (pipe2(fds, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }
}

}  // namespace

CCommandResult runCommand(const std::vector<std::string>& argv, const std::string& input, int asUid)
{
    int in[2], out[2], err[2];
    makePipe(in);
    makePipe(out);
    makePipe(err);
    const std::vector<std::string> full = withEmulator(argv);
    const pid_t pid = fork();
    if (pid == 0) {
        execute(full, in[0], out[1], err[1], asUid);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    // Small inputs only: they fit the pipe, so writing first cannot block on the program's output.
    if (!input.empty() && write(in[1], input.data(), input.size()) < 0) {
        std::perror("write");
    }
    close(in[1]);
    CCommandResult result;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string* texts[2] = {&result.out, &result.err};
    int open = 2;
    while (open > 0 && poll(fds, 2, LIMIT_MS) > 0) {
        for (int i = 0; i < 2; ++i) {
            if (fds[i].revents == 0) {
                continue;
            }
            char buffer[4096];
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                texts[i]->append(buffer, static_cast<std::size_t>(n));
            } else {
                fds[i].fd = -fds[i].fd - 1;  // ignored from now on
                --open;
            }
        }
    }
    close(out[0]);
    close(err[0]);
    result.status = reap(pid);
    return result;
}

CChildProcess::CChildProcess(const std::vector<std::string>& argv)
{
    int in[2], out[2];
    makePipe(in);
    makePipe(out);
    const std::vector<std::string> full = withEmulator(argv);
    m_pid = fork();
    if (m_pid == 0) {
        execute(full, in[0], out[1], STDERR_FILENO, -1);
    }
    close(in[0]);
    close(out[1]);
    m_input = in[1];
    m_output = out[0];
}

CChildProcess::~CChildProcess()
{
    finish();
    close(m_output);
}

std::string CChildProcess::readLine()
{
    std::string line;
    char c;
    pollfd output{m_output, POLLIN, 0};
    while (poll(&output, 1, LIMIT_MS) > 0 && read(m_output, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return line;
}

int CChildProcess::finish()
{
    if (m_input >= 0) {
        close(m_input);
        m_input = -1;
        m_status = reap(m_pid);
    }
    return m_status;
}
