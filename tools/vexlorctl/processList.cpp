// The kernel's list of Unix sockets names every bound control socket, whoever owns it.
#include "processList.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "controlProtocol.h"

namespace {

constexpr unsigned long ACCEPTING = 0x10000;  // __SO_ACCEPTCON: a listening socket

}  // namespace

std::vector<int> controllablePids()
{
    const std::string prefix = std::string("@") + vexlor_control::SOCKET_PREFIX;
    std::vector<int> pids;
    std::ifstream table("/proc/net/unix");
    std::string line;
    std::getline(table, line);  // the heading
    while (std::getline(table, line)) {
        // Num RefCount Protocol Flags Type St Inode Path
        std::istringstream fields(line);
        std::string num, refCount, protocol, flags, type, state, inode, path;
        if (!(fields >> num >> refCount >> protocol >> flags >> type >> state >> inode >> path) ||
            (std::strtoul(flags.c_str(), nullptr, 16) & ACCEPTING) == 0 ||
            path.compare(0, prefix.size(), prefix) != 0) {
            continue;
        }
        const std::string digits = path.substr(prefix.size());
        if (!digits.empty() && digits.size() < 10 && digits.find_first_not_of("0123456789") == std::string::npos) {
            pids.push_back(std::atoi(digits.c_str()));
        }
    }
    std::sort(pids.begin(), pids.end());
    pids.erase(std::unique(pids.begin(), pids.end()), pids.end());
    return pids;
}

std::string programName(int pid)
{
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

bool mayAsk(int pid)
{
    struct stat status;
    if (geteuid() == 0 || stat(("/proc/" + std::to_string(pid)).c_str(), &status) != 0) {
        return true;  // root, or gone: asking tells which
    }
    return status.st_uid == geteuid();
}
