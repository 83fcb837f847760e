// The record queue: a ring of variable-length entries. An entry is a fixed header followed by
// its five texts, padded to 8 bytes; an entry never wraps around the ring's end: where it would,
// a header of size 0 says "go on at the ring's beginning".
#include "CRecordQueue.h"

#include <cstring>

#include "Rfc5424.h"

namespace {

constexpr std::size_t ALIGNMENT = 8;

struct CEntryHeader {
    std::uint32_t size;  // of the whole entry, a multiple of ALIGNMENT; 0: go on at the ring's beginning
    std::uint32_t sequence;
    std::int64_t seconds;
    std::int32_t pid, depth, microseconds, severity;
    std::uint32_t lengths[5];  // appname, thread, component, function, message
};

std::size_t padded(std::size_t size) { return (size + ALIGNMENT - 1) & ~(ALIGNMENT - 1); }

}  // namespace

static_assert(sizeof(CEntryHeader) + ALIGNMENT <= 64, "LARGEST_RECORD allows 64 bytes for the header");

CRecordQueue::CRecordQueue(std::size_t maxRecords, std::size_t maxBytes, CWaiter& waiter)
    : m_maxRecords(maxRecords)
    , m_capacity(maxBytes & ~(ALIGNMENT - 1))
    , m_ring(new char[m_capacity])  // not value-initialised: the pages stay untouched until used
    , m_waiter(waiter)
{
}

bool CRecordQueue::push(int pid, int depth, long long seconds, int microseconds, int severity,
                        const std::string& appname, const std::string& thread, const std::string& component,
                        const std::string& function, const std::string& message)
{
    const std::string* const texts[5] = {&appname, &thread, &component, &function, &message};
    CEntryHeader header{0, 0, seconds, pid, depth, microseconds, severity, {}};
    std::size_t size = sizeof header;
    for (int i = 0; i < 5; ++i) {
        header.lengths[i] =
            static_cast<std::uint32_t>(utf8PrefixLength(*texts[i], i == 4 ? MESSAGE_LIMIT : NAME_LIMIT));
        size += header.lengths[i];
    }
    size = padded(size);
    header.size = static_cast<std::uint32_t>(size);

    m_sequence = nextSequence(m_sequence);
    header.sequence = m_sequence;
    Position tail = m_tail.load(std::memory_order_relaxed);
    const std::uint64_t pushed = m_pushed.load(std::memory_order_relaxed);
    // Acquire: the sender is done with what it released before the space is written again.
    const std::uint64_t count = pushed - m_released.load(std::memory_order_acquire);
    std::size_t offset = static_cast<std::size_t>(tail % m_capacity);
    std::size_t skip = m_capacity - offset < size ? m_capacity - offset : 0;
    // Empty: go on at the ring's beginning, so that a quiet queue keeps using the same pages.
    const bool restart = count == 0 && skip == 0 && offset >= size;
    if (restart) {
        skip = m_capacity - offset;
    }
    if (count >= m_maxRecords || tail - m_head.load(std::memory_order_acquire) + skip + size > m_capacity) {
        m_dropped.fetch_add(1, std::memory_order_relaxed);
        // The first drop of a run wakes the sender, so that it reports the run's start.
        if (!m_inDropRun) {
            m_inDropRun = true;
            m_senderAsleep.store(false, std::memory_order_relaxed);
            m_waiter.wake();
        }
        return false;
    }
    if (restart) {
        // Said beside the ring rather than in it: once the head moves on, nothing keeps the
        // ring's bytes at the old end from being written before the sender read them.
        m_restartedAt.store(tail, std::memory_order_relaxed);
    } else if (skip != 0) {
        const std::uint32_t wrap = 0;
        std::memcpy(&m_ring[offset], &wrap, sizeof wrap);
    }
    tail += skip;
    offset = skip != 0 ? 0 : offset;
    char* at = &m_ring[offset];
    std::memcpy(at, &header, sizeof header);
    at += sizeof header;
    for (int i = 0; i < 5; ++i) {
        std::memcpy(at, texts[i]->data(), header.lengths[i]);
        at += header.lengths[i];
    }
    m_inDropRun = false;
    m_pushed.store(pushed + 1, std::memory_order_release);
    // Sequentially consistent with sleepAfter: either the sender sees this record before it
    // sleeps, or this call sees it asleep. Only the record that ends its sleep pays for a wake-up.
    m_tail.store(tail + size, std::memory_order_seq_cst);
    if (restart) {
        // The skipped end of the ring is free as well: the sender had released everything before
        // it, up to where the record went in (unless it has already released this record too).
        Position released = tail - skip;
        m_head.compare_exchange_strong(released, tail, std::memory_order_release, std::memory_order_relaxed);
    }
    if (m_senderAsleep.load(std::memory_order_seq_cst) && m_senderAsleep.exchange(false, std::memory_order_relaxed)) {
        m_waiter.wake();
    }
    return true;
}

CRecordQueue::Position CRecordQueue::begin() const { return m_head.load(std::memory_order_acquire); }

CRecordQueue::Position CRecordQueue::end() const { return m_tail.load(std::memory_order_acquire); }

void CRecordQueue::read(Position& position, CQueuedRecord& record) const
{
    if (position == m_restartedAt.load(std::memory_order_relaxed)) {
        position += m_capacity - position % m_capacity;
    }
    std::size_t offset = static_cast<std::size_t>(position % m_capacity);
    CEntryHeader header;
    std::memcpy(&header.size, &m_ring[offset], sizeof header.size);
    if (header.size == 0) {
        position += m_capacity - offset;
        offset = 0;
    }
    std::memcpy(&header, &m_ring[offset], sizeof header);
    record.pid = header.pid;
    record.depth = header.depth;
    record.seconds = header.seconds;
    record.microseconds = header.microseconds;
    record.severity = header.severity;
    record.sequence = header.sequence;
    const char* text = &m_ring[offset + sizeof header];
    std::string_view* const views[5] = {&record.appname, &record.thread, &record.component, &record.function,
                                        &record.message};
    for (int i = 0; i < 5; ++i) {
        *views[i] = std::string_view(text, header.lengths[i]);
        text += header.lengths[i];
    }
    position += header.size;
}

CRecordQueue::Position CRecordQueue::release(Position position, std::size_t records)
{
    m_head.store(position, std::memory_order_release);
    m_released.store(m_released.load(std::memory_order_relaxed) + records, std::memory_order_release);
    return position;
}

bool CRecordQueue::sleepAfter(Position position)
{
    m_senderAsleep.store(true, std::memory_order_seq_cst);
    if (m_tail.load(std::memory_order_seq_cst) == position) {
        return true;
    }
    m_senderAsleep.store(false, std::memory_order_relaxed);
    return false;
}

unsigned long long CRecordQueue::takeDropped() { return m_dropped.exchange(0, std::memory_order_relaxed); }

std::size_t CRecordQueue::size() const
{
    // Released first: it never passes pushed, so the difference cannot go below zero.
    const std::uint64_t released = m_released.load(std::memory_order_acquire);
    return static_cast<std::size_t>(m_pushed.load(std::memory_order_acquire) - released);
}
