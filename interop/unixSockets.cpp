// /proc/net/unix and /proc/<pid>/fd read as the kernel writes them.
#include "unixSockets.h"

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

constexpr unsigned long ACCEPTING = 0x10000;  // __SO_ACCEPTCON: a listening socket
constexpr int UNCONNECTED = 1;  // SS_UNCONNECTED: bound only, or listening

// Calls `each(entry name)` for the entries of `path` that are numbers: pids, descriptors.
template <typename Each>
void forEachNumbered(const std::string& path, Each each)
{
    if (DIR* directory = opendir(path.c_str())) {
        while (const dirent* entry = readdir(directory)) {
            if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9') {
                each(entry->d_name);
            }
        }
        closedir(directory);
    }
}

}  // namespace

std::vector<CUnixSocket> boundAbstractSockets()
{
    std::vector<CUnixSocket> sockets;
    std::ifstream table("/proc/net/unix");
    std::string line;
    std::getline(table, line);  // the heading
    while (std::getline(table, line)) {
        // Num RefCount Protocol Flags Type St Inode Path; an abstract path begins with "@".
        std::istringstream fields(line);
        std::string num, refCount, protocol, flags, type, path;
        int state = 0;
        unsigned long inode = 0;
        if (fields >> num >> refCount >> protocol >> flags >> type >> std::hex >> state >> std::dec >> inode >> path &&
            state == UNCONNECTED && path[0] == '@') {
            sockets.push_back({path.substr(1), inode, (std::strtoul(flags.c_str(), nullptr, 16) & ACCEPTING) != 0});
        }
    }
    return sockets;
}

CSocketHolders::CSocketHolders()
{
    forEachNumbered("/proc", [&](const char* pid) {
        const std::string fds = std::string("/proc/") + pid + "/fd/";
        forEachNumbered(fds, [&](const char* fd) {
            char target[64];
            const ssize_t n = readlink((fds + fd).c_str(), target, sizeof target - 1);
            unsigned long inode = 0;
            if (n > 0 && (target[n] = 0, std::sscanf(target, "socket:[%lu]", &inode) == 1)) {
                m_byInode.emplace(inode, static_cast<pid_t>(std::atoi(pid)));
            }
        });
    });
}

pid_t CSocketHolders::holderOf(const std::string& name) const
{
    pid_t holder = 0;
    for (const CUnixSocket& socket : boundAbstractSockets()) {
        const auto found = m_byInode.find(socket.inode);
        if (socket.name == name && found != m_byInode.end() && (holder == 0 || socket.listening)) {
            holder = found->second;
        }
    }
    return holder;
}

long effectiveUid(pid_t pid)
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
