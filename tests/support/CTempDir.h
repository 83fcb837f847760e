// A fresh directory per test (mkdtemp), removed with its content at the end, and small helpers
// to write the files the tests need.
#pragma once

#include <string>
#include <utility>

class CTempDir {
public:
    CTempDir();
    ~CTempDir();
    CTempDir(const CTempDir&) = delete;
    CTempDir& operator=(const CTempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }
    // Writes `content` into `name` in place (open, write, close), as an editor that keeps the
    // file would; returns the full path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string m_path;
};

// Writes a whole file in place (truncate, write, close).
void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);
// What arrives on `fd` (a pipe, a socket, a terminal) until it ends or nothing more comes for
// `waitMs` milliseconds.
std::string readWhileArriving(int fd, int waitMs);
// The open descriptors of this process and its threads named vexlor-...: what an unloaded target
// or an ended container must have left as it found it. (Sanitizers start threads of their own.)
std::pair<long, long> descriptorsAndThreads();
// Whether those counts come back to `before` within waitUntil's limit: a joined thread's task can
// stay listed a moment longer (seen under qemu).
bool countsReturnTo(const std::pair<long, long>& before);
// Removes a directory tree or file; missing paths are fine.
void removeTree(const std::string& path);
