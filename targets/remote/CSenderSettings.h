// How the remote target's sender thread works: bounds, waits and the words of its reports.
#pragma once

#include <cstddef>
#include <string>

class CTargetCounters;

struct CSenderSettings {
    std::string owner;  // "remote target <name>", the start of every diagnostic
    std::string name;  // the target's name (name=), as vexlorctl stats shows it
    CTargetCounters* counters = nullptr;  // the sender's (see CSender), counted by its report
    std::string destination;  // "tcp 10.0.0.1:514", for the operator
    std::size_t queueRecords = 10000;
    std::size_t queueBytes = 16 << 20;
    int retryMs = 250;  // first wait after a failed attempt, doubled after each further one
    int retryMaxMs = 30000;  // longest wait between attempts
    int connectTimeoutMs = 5000;  // one attempt; also how long a relay may take to answer
    int drainMs = 2000;  // longest wait for the queue to drain at the end
};
