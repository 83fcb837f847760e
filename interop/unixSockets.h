// The kernel's table of Unix sockets (/proc/net/unix) and the processes that hold them: how
// vexlorctl finds control names, and how the target and vexlorctl name whoever holds one.
#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

struct CUnixSocket {
    std::string name;  // abstract, without its "@"
    unsigned long inode;
    bool listening;
};

// Every socket bound to an abstract name but not connected (a listener, or a name only held).
// A name with a line feed in it may forge an entry: what a name says must be checked.
std::vector<CUnixSocket> boundAbstractSockets();

// Which process has each socket open, from one look at /proc/<pid>/fd: root sees every process,
// another user only their own.
class CSocketHolders {
public:
    CSocketHolders();
    // The holder of the socket bound to `name` (the listener, if any), 0 when not seen.
    pid_t holderOf(const std::string& name) const;

private:
    std::map<unsigned long, pid_t> m_byInode;
};

// The effective user of `pid` (/proc/<pid>/status), -1 when it cannot be read.
long effectiveUid(pid_t pid);
