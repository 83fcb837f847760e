// Opening the connection of a transport: the host name resolved anew on every call (its
// addresses may have changed since the last connection), then each address (IPv4 or IPv6) tried
// with a non-blocking connect. Waits end at `limit`, or earlier when the sender is stopped.
#pragma once

#include <string>

#include "CResolver.h"
#include "CWaiter.h"

// A connected non-blocking socket of `type` (SOCK_STREAM or SOCK_DGRAM), or -1 with `error` set
// to a text for the operator. `connectTime` receives how long the connect itself took (about one
// round trip for a stream).
int connectSocket(const std::string& host, int port, int type, CResolver& resolver, CWaiter& waiter,
                  CWaiter::Clock::time_point limit, std::string& error, CWaiter::Clock::duration& connectTime);
