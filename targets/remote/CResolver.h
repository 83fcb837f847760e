// Name resolution for one target, never holding up the sender past its limits: at most one lookup
// in flight. A lookup that outlives the wait for it (a DNS server that does not answer) is taken
// up again by the next attempt rather than started anew; at the end it is cancelled, or, when the
// system's resolver is already working on it, left to free itself the moment that finishes.
#pragma once

#include <string>

#include "CWaiter.h"

struct addrinfo;

class CResolver {
public:
    CResolver() = default;
    ~CResolver();
    CResolver(const CResolver&) = delete;
    CResolver& operator=(const CResolver&) = delete;

    // The addresses of `host` for sockets of `type` (SOCK_STREAM, SOCK_DGRAM) at `port`, to be
    // freed with freeaddrinfo; null with `error` set when there are none, or none before `limit`
    // or the stop deadline.
    addrinfo* resolve(const std::string& host, int port, int type, CWaiter& waiter, CWaiter::Clock::time_point limit,
                      std::string& error);

    // Lookups of this process that are not freed yet (for tests).
    static int liveLookups();

private:
    struct CLookup;
    void letGo();

    CLookup* m_lookup = nullptr;  // the lookup in flight, if any
};
