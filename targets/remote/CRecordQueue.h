// The bounded queue between the log calls and the sender thread: one ring of bytes, into which a
// log call copies its record and returns. Bounded in records (queue=) and in bytes (queue-bytes=,
// the ring's size, taken once as address space; pages are touched as records need them, and an
// emptied queue starts again at the ring's beginning). When a record does not fit, it is dropped
// and counted. A record stays in the ring until the sender releases it: while it is in flight to
// the relay too, so that it can be sent again after a broken connection.
//
// One writer and one reader, without a lock: the library never calls a target twice at once, so
// push has one caller at a time, and the sender thread is the only reader. A log call therefore
// never waits for the sender, not even when the sender is preempted in the middle of its work.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <atomic>
#include <string>

#include "CQueuedRecord.h"
#include "CWaiter.h"

// RFC 5424's sequenceId after `sequence`: 1 to 2147483647, then 1 again.
inline std::uint32_t nextSequence(std::uint32_t sequence) { return sequence >= 2147483647 ? 1 : sequence + 1; }

class CRecordQueue {
public:
    // A place in the ring's endless sequence of bytes; the byte is at position % the ring's size.
    using Position = std::uint64_t;

    // Texts longer than these are cut (on a UTF-8 boundary) when queued.
    static constexpr std::size_t NAME_LIMIT = 1024;  // application, thread, component, function
    static constexpr std::size_t MESSAGE_LIMIT = 16384;
    // The room the longest record takes: queue-bytes= must give at least a few of them.
    static constexpr std::size_t LARGEST_RECORD = 64 + 4 * NAME_LIMIT + MESSAGE_LIMIT;

    // Wakes `waiter` when a record arrives while the sender sleeps. Throws std::bad_alloc when
    // the ring cannot be had.
    CRecordQueue(std::size_t maxRecords, std::size_t maxBytes, CWaiter& waiter);

    // Log callers: copies the record in and gives it the next sequence number; false when it was
    // dropped (it used its number all the same, so that the receiver sees the gap).
    bool push(int pid, int depth, long long seconds, int microseconds, int severity, const std::string& appname,
              const std::string& thread, const std::string& component, const std::string& function,
              const std::string& message);

    // The sender: where the oldest record it has not released starts, and where the newest ends.
    Position begin() const;
    Position end() const;
    // The sender: the record at `position` (before end()), whose texts stay valid until it is
    // released; moves `position` past it.
    void read(Position& position, CQueuedRecord& record) const;
    // The sender: frees the `records` records before `position`; returns begin().
    Position release(Position position, std::size_t records);
    // The sender: when no record lies past `position`, notes that the sender sleeps (the next push
    // wakes it) and returns true.
    bool sleepAfter(Position position);
    // The sender: the number of records dropped since it last took that count. The first drop
    // after a stored record wakes the sender, so that it can report the start of a run of drops.
    unsigned long long takeDropped();
    // Records held, those in flight included.
    std::size_t size() const;

private:
    const std::size_t m_maxRecords;
    const std::size_t m_capacity;  // the ring's size in bytes, a multiple of 8
    const std::unique_ptr<char[]> m_ring;  // records are written past m_tail, read before it
    CWaiter& m_waiter;
    // What each side writes lies on a cache line of its own, and no count is shared by both: a
    // log call only pays for the lines the sender changed since, and for the one ordered store
    // that lets it see a sleeping sender.
    // Push's own, read by the sender:
    alignas(64) std::atomic<Position> m_tail{0};
    std::atomic<std::uint64_t> m_pushed{0};  // records stored, ever
    std::uint32_t m_sequence = 0;  // the last number given
    bool m_inDropRun = false;  // no record was stored since the last drop
    // The sender's own, read by push (which moves m_head only when the queue was empty):
    alignas(64) std::atomic<Position> m_head{0};
    std::atomic<std::uint64_t> m_released{0};  // records released, ever
    // Rarely written:
    alignas(64) std::atomic<bool> m_senderAsleep{false};
    // Where push last went on at the ring's beginning because the queue was empty.
    std::atomic<Position> m_restartedAt{~Position(0)};
    std::atomic<unsigned long long> m_dropped{0};  // since the sender last took it
};
