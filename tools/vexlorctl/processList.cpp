// The kernel's list of Unix sockets names every bound control socket, whoever holds it.
#include "processList.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "controlProtocol.h"

namespace {

constexpr unsigned long ACCEPTING = 0x10000;  // __SO_ACCEPTCON: a listening socket

}  // namespace

CControlNames controlNames()
{
    CControlNames names;
    std::ifstream table("/proc/net/unix");
    std::string line;
    std::getline(table, line);  // the heading
    while (std::getline(table, line)) {
        // Num RefCount Protocol Flags Type St Inode Path; an abstract path begins with "@". A
        // name with a line feed in it may forge a line here: what a name says is checked later.
        std::istringstream fields(line);
        std::string num, refCount, protocol, flags, type, state, inode, path;
        if (!(fields >> num >> refCount >> protocol >> flags >> type >> state >> inode >> path) ||
            (std::strtoul(flags.c_str(), nullptr, 16) & ACCEPTING) == 0 || path[0] != '@') {
            continue;
        }
        const std::string name = path.substr(1);
        const pid_t pid = vexlor_control::pidOfName(name);
        if (pid <= 0) {
            continue;
        }
        std::vector<std::string>& ofPid = names[pid];
        if (name == vexlor_control::primaryName(pid)) {
            ofPid.insert(ofPid.begin(), name);
        } else {
            ofPid.push_back(name);
        }
    }
    return names;
}

std::vector<int> controllablePids()
{
    std::vector<int> pids;
    for (const auto& entry : controlNames()) {
        pids.push_back(entry.first);
    }
    return pids;
}

std::string programName(int pid)
{
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

long effectiveUid(int pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        long real = -1;
        long effective = -1;
        if (std::sscanf(line.c_str(), "Uid: %ld %ld", &real, &effective) == 2) {
            return effective;
        }
    }
    return -1;
}

bool mayAsk(int pid)
{
    struct stat status;
    if (geteuid() == 0 || stat(("/proc/" + std::to_string(pid)).c_str(), &status) != 0) {
        return true;  // root, or gone: asking tells which
    }
    return status.st_uid == geteuid();
}
