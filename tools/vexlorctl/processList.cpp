// The kernel's list of Unix sockets names every listening control socket, whoever holds it.
#include "processList.h"

#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include "controlProtocol.h"

CControlNames controlNames()
{
    CControlNames names;
    for (const CUnixSocket& socket : boundAbstractSockets()) {
        const pid_t pid = vexlor_control::pidOfName(socket.name);
        if (!socket.listening || pid <= 0) {
            continue;
        }
        std::vector<std::string>& ofPid = names[pid];
        ofPid.insert(socket.name == vexlor_control::primaryName(pid) ? ofPid.begin() : ofPid.end(), socket.name);
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

bool mayAsk(int pid)
{
    struct stat status;
    if (geteuid() == 0 || stat(("/proc/" + std::to_string(pid)).c_str(), &status) != 0) {
        return true;  // root, or gone: asking tells which
    }
    return status.st_uid == geteuid();
}
