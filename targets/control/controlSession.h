// One connection to the control socket: who asks, what, and the answer. The control thread holds
// several at once and never blocks on any: a client that dribbles or stops reading loses only
// its own connection, at its deadline.
#pragma once

#include <chrono>
#include <string>
#include <sys/socket.h>

#include "CControlState.h"

class CControlSession {
public:
    using CClock = std::chrono::steady_clock;
    enum class EStep { GO_ON, DONE, STOP_THREAD };

    // Takes `fd`, an accepted non-blocking connection of an admitted peer.
    CControlSession(int fd, const ucred& peer);
    ~CControlSession();
    CControlSession(const CControlSession&) = delete;
    CControlSession& operator=(const CControlSession&) = delete;

    int fd() const { return m_fd; }
    short events() const;
    CClock::time_point deadline() const { return m_deadline; }
    // Reads or writes what is ready; STOP_THREAD when the target is going.
    EStep onReady(CControlServer::CState& state);

private:
    EStep read(CControlServer::CState& state);
    EStep write();

    const int m_fd;
    const ucred m_peer;
    const CClock::time_point m_deadline;  // for the whole exchange, from accept
    std::string m_input;
    std::string m_output;  // the answer, once the request is in
    std::size_t m_sent = 0;
};

// Restores the masks of the raises that are due (see temporaryRaises.h), each inside a guarded
// library call; false when the thread must end instead.
bool revertDueRaises(CControlServer::CState& state);
// Whether the peer of the accepted connection `fd` may control this process. A refused peer gets
// the reason at once, without a byte of its request being read, and is logged once per user.
bool admit(CControlServer::CState& state, int fd, ucred& peer);
