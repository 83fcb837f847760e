// One record as the remote target keeps it between the log call and the sender thread: copies of
// the record's values, and the application name of the moment the record was made.
#pragma once

#include <string>

struct CQueuedRecord {
    int pid = 0;
    int depth = 0;
    long long seconds = 0;
    int microseconds = 0;
    int severity = 0;  // 0 (emergency) to 7 (debug)
    std::string appname, thread, component, function, message;
};
