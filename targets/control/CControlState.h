// What the control thread shares with the CControlServer that started it. Either may end first
// (see ~CControlServer), so the last of the two to let go frees it.
#pragma once

#include <atomic>
#include <set>
#include <string>
#include <sys/types.h>
#include <unistd.h>

#include "CControlServer.h"

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

    void release()
    {
        if (owners.fetch_sub(1) == 1) {
            if (wakeFd >= 0) {
                close(wakeFd);
            }
            delete this;
        }
    }
};
