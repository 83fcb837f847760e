// One record as the remote target keeps it between the log call and the sender thread: its
// values, the application name of the moment the record was made, and its sequence number. The
// texts are views into the queue's memory, valid until the sender releases the record.
#pragma once

#include <cstdint>
#include <string_view>

struct CQueuedRecord {
    int pid = 0;
    int depth = 0;
    long long seconds = 0;
    int microseconds = 0;
    int severity = 0;  // 0 (emergency) to 7 (debug)
    std::string_view appname, thread, component, function, message;
    std::uint32_t sequence = 0;  // 1 to 2147483647, one counter per target
};
