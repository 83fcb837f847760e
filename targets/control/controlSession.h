// One connection to the control socket: who asks, what, and the answer.
#pragma once

#include "CControlState.h"

// Serves the client on `client` (closed by the caller). False when the thread must end.
bool serveClient(CControlServer::CState& state, int client);
