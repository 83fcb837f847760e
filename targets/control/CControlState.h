// What the control thread shares with the CControlServer that started it. Either may end first
// (see ~CControlServer), so the last of the two to let go frees it.
#pragma once

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

#include "CControlServer.h"

class CControlSession;

struct CControlServer::CState {
    int listenFd = -1;  // closed by ~CControlServer; -1 in a fork child
    int wakeFd = -1;  // eventfd, readable once the thread must end
    std::string name;  // the control name bound, for messages
    pid_t ownerPid = 0;  // the process whose thread serves the socket
    uid_t ownerUid = 0;  // besides root, the only user who may control the process
    std::atomic<bool> stopping{false};
    // Set while the thread is inside a call into the library (which may wait for its lock).
    std::atomic<bool> busy{false};
    std::atomic<int> owners{2};  // the server object and the thread
    std::set<uid_t> refusedUids;  // the thread's: each refused user is logged once
    unsigned int acceptFailures = 0;  // the thread's: failed accepts since the last success
    // The thread's open connections. Kept here, not on its stack, so that a fork child (which
    // has no such thread) still reaches them and frees them with the rest.
    std::vector<std::unique_ptr<CControlSession>> sessions;

    ~CState();
    void release();  // frees the state when the other owner has let go already
};
