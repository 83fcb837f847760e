// Runs programs of the build from a test, through the emulator in a cross build: to its end
// (runCommand), or as a running child with pipes on its standard input and output.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

struct CCommandResult {
    int status = -1;  // exit status; 128 + signal number for a killed program
    std::string out;
    std::string err;
};

// `asUid` >= 0 runs the program as that user and group (the test must be root). A program that
// has not ended after the limit is killed (a hang guard, never a speed check).
CCommandResult runCommand(const std::vector<std::string>& argv, const std::string& input = std::string(),
                          int asUid = -1);

class CChildProcess {
public:
    explicit CChildProcess(const std::vector<std::string>& argv);
    // Closes its input and waits for it; kills it if it does not end.
    ~CChildProcess();
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    pid_t pid() const { return m_pid; }
    // One line of its output without the line feed; empty at its end or after the limit.
    std::string readLine();
    // Closes its input and returns its exit status (as CCommandResult::status).
    int finish();

private:
    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    int m_status = -1;
};
