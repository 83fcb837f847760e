// The bounded queue between the log calls and the sender thread. A log call copies its record
// into a slot and returns; when all slots are taken the newest record is dropped and counted.
// Slots are reused and their strings swapped with the sender's, so that once the queue has been
// filled a record costs no allocation on either side.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "CQueuedRecord.h"
#include "CWaiter.h"

class CRecordQueue {
public:
    // Wakes `waiter` when a record arrives while the sender sleeps.
    CRecordQueue(std::size_t capacity, CWaiter& waiter);

    // Log callers: copies the record in; false when it was dropped because the queue is full.
    bool push(int pid, int depth, long long seconds, int microseconds, int severity, const std::string& appname,
              const std::string& thread, const std::string& component, const std::string& function,
              const std::string& message);

    // The sender: moves the oldest record into `record` and returns true; with an empty queue
    // returns false, and then a later push wakes the waiter. `dropped` receives the number of
    // records dropped since the last call that reported them (and that count restarts at 0).
    bool pop(CQueuedRecord& record, unsigned long long& dropped);

    // The sender: the number of records dropped since it last took that count. The first drop
    // after a take wakes the sender, so that it can report the start of a run of drops.
    unsigned long long takeDropped();

    std::size_t size() const;

private:
    mutable std::mutex m_mutex;
    const std::size_t m_capacity;
    CWaiter& m_waiter;
    std::vector<CQueuedRecord> m_slots;  // guarded by m_mutex; grows up to m_capacity, then reused
    std::size_t m_first = 0;  // guarded by m_mutex; the oldest record's slot
    std::size_t m_count = 0;  // guarded by m_mutex
    unsigned long long m_dropped = 0;  // guarded by m_mutex; since the sender last took it
    bool m_senderAsleep = false;  // guarded by m_mutex; the sender found the queue empty
};
