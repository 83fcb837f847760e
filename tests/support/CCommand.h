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
// has not ended after a minute is killed (a hang guard, never a speed check).
CCommandResult runCommand(const std::vector<std::string>& argv, int asUid = -1);

class CChildProcess {
public:
    explicit CChildProcess(const std::vector<std::string>& argv);
    ~CChildProcess() { finish(); }
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    pid_t pid() const { return m_pid; }
    std::string readLine();  // without the line feed; empty at its end
    int finish();  // closes its input, waits, returns the status as CCommandResult's

private:
    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    int m_status = -1;
};
