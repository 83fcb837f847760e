// fork/exec with the emulator prefix of a cross build, and bounded waits.
#include "CCommand.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <grp.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// In the child: puts `in`, `out` and `err` on 0, 1 and 2, drops to `asUid`, runs the program
// behind the emulator's words (VEXLOR_TEST_EMULATOR_COMMAND). Never returns.
pid_t start(const std::vector<std::string>& argv, int in, int out, int err, int asUid)
{
    const pid_t pid = fork();
    if (pid != 0) {
        return pid;
    }
    dup2(in, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    if (asUid >= 0 && (setgroups(0, nullptr) != 0 || setgid(asUid) != 0 || setuid(asUid) != 0)) {
        _exit(126);
    }
    std::vector<std::string> words;
    std::istringstream emulator(VEXLOR_TEST_EMULATOR_COMMAND);
    for (std::string word; emulator >> word;) {
        words.push_back(word);
    }
    words.insert(words.end(), argv.begin(), argv.end());
    std::vector<char*> args;
    for (std::string& word : words) {
        args.push_back(word.data());
    }
    args.push_back(nullptr);
    execvp(args[0], args.data());
    _exit(127);
}

int reap(pid_t pid)
{
    int status = 0;
    for (int waited = 0; waitpid(pid, &status, WNOHANG) == 0; ++waited) {
        if (waited == 30000) {
            kill(pid, SIGKILL);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string contentOf(FILE* file)
{
    std::string text;
    std::rewind(file);
    for (int c; (c = std::fgetc(file)) != EOF;) {
        text += static_cast<char>(c);
    }
    std::fclose(file);
    return text;
}

}  // namespace

CCommandResult runCommand(const std::vector<std::string>& argv, int asUid)
{
    // Files, not pipes: nothing to drain while the program runs.
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    const int none = open("/dev/null", O_RDONLY | O_CLOEXEC);
    CCommandResult result;
    result.status = reap(start(argv, none, fileno(out), fileno(err), asUid));
    close(none);
    result.out = contentOf(out);
    result.err = contentOf(err);
    return result;
}

CChildProcess::CChildProcess(const std::vector<std::string>& argv)
{
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        return;
    }
    m_pid = start(argv, in[0], out[1], STDERR_FILENO, -1);
    close(in[0]);
    close(out[1]);
    m_input = in[1];
    m_output = out[0];
}

std::string CChildProcess::readLine()
{
    std::string line;
    for (char c; read(m_output, &c, 1) == 1 && c != '\n';) {
        line += c;
    }
    return line;
}

int CChildProcess::finish()
{
    if (m_input >= 0) {
        close(m_input);
        close(m_output);
        m_input = -1;
        m_status = reap(m_pid);
    }
    return m_status;
}
