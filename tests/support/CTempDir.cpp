// Per-test temporary directories and file helpers.
#include "CTempDir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

#include "waitUntil.h"

CTempDir::CTempDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "vexlor-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed for " + pattern);
    }
    m_path = pattern;
}

CTempDir::~CTempDir() { removeTree(m_path); }

std::string CTempDir::write(const std::string& name, const std::string& content) const
{
    const std::string path = file(name);
    writeFile(path, content);
    return path;
}

void writeFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    if (!out) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

std::string readWhileArriving(int fd, int waitMs)
{
    std::string text;
    char buffer[4096];
    pollfd ready{fd, POLLIN, 0};
    for (ssize_t got; poll(&ready, 1, waitMs) == 1 && (got = read(fd, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

std::pair<long, long> descriptorsAndThreads()
{
    long threads = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        threads += readFile(task.path() / "comm").rfind("vexlor-", 0) == 0 ? 1 : 0;
    }
    return {static_cast<long>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})), threads};
}

bool countsReturnTo(const std::pair<long, long>& before)
{
    return waitUntil([&] { return descriptorsAndThreads() == before; });
}

void removeTree(const std::string& path)
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}
