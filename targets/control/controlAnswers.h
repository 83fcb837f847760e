// The answers of a running program to vexlorctl, built with the library's public calls only.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// The whole answer to one request (fields as split by controlProtocol.h), "ok" or "error" last.
// `peerUid` is named in the syslog note of a change.
std::string answerRequest(const std::vector<std::string>& request, uid_t peerUid, pid_t peerPid);
