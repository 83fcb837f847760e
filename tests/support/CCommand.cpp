// fork/exec with the emulator prefix of a cross build, and bounded waits.
#include "CCommand.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <grp.h>
#include <iterator>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#include "CTempDir.h"
#include "runInChild.h"

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
    std::istringstream emulator(VEXLOR_TEST_EMULATOR_COMMAND);
    std::vector<std::string> words{std::istream_iterator<std::string>(emulator), {}};
    words.insert(words.end(), argv.begin(), argv.end());
    std::vector<char*> args(words.size() + 1);  // and the null that ends them
    std::transform(words.begin(), words.end(), args.begin(), [](std::string& word) { return word.data(); });
    execvp(args[0], args.data());
    _exit(127);
}

int reap(pid_t pid)
{
    const int status = reapChild(pid, std::chrono::seconds(60));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
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
    result.out = readFile("/proc/self/fd/" + std::to_string(fileno(out)));
    result.err = readFile("/proc/self/fd/" + std::to_string(fileno(err)));
    std::fclose(out);
    std::fclose(err);
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
