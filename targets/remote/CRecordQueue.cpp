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

std::size_t cutLength(const std::string& text, std::size_t limit) { return utf8PrefixLength(text, limit); }

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
        header.lengths[i] = static_cast<std::uint32_t>(cutLength(*texts[i], i == 4 ? MESSAGE_LIMIT : NAME_LIMIT));
        size += header.lengths[i];
    }
    size = padded(size);
    header.size = static_cast<std::uint32_t>(size);

    bool wake = false;
    bool stored = false;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_sequence = nextSequence(m_sequence);
        header.sequence = m_sequence;
        std::size_t offset = static_cast<std::size_t>(m_tail % m_capacity);
        const std::size_t skip = m_capacity - offset < size ? m_capacity - offset : 0;
        if (m_count == m_maxRecords || m_tail - m_head + skip + size > m_capacity) {
            // The first drop of a run wakes the sender, so that it reports the run's start.
            ++m_dropped;
            wake = !m_inDropRun;
            m_inDropRun = true;
        } else {
            if (skip != 0) {
                const std::uint32_t wrap = 0;
                std::memcpy(&m_ring[offset], &wrap, sizeof wrap);
                m_tail += skip;
                offset = 0;
            }
            char* at = &m_ring[offset];
            std::memcpy(at, &header, sizeof header);
            at += sizeof header;
            for (int i = 0; i < 5; ++i) {
                std::memcpy(at, texts[i]->data(), header.lengths[i]);
                at += header.lengths[i];
            }
            m_tail += size;
            ++m_count;
            stored = true;
            m_inDropRun = false;
            // Only the record that ends the sender's sleep pays for a wake-up.
            wake = m_senderAsleep;
            m_senderAsleep = false;
        }
    }
    if (wake) {
        m_waiter.wake();
    }
    return stored;
}

CRecordQueue::Position CRecordQueue::begin() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_head;
}

CRecordQueue::Position CRecordQueue::end() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_tail;
}

void CRecordQueue::read(Position& position, CQueuedRecord& record) const
{
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
    std::lock_guard<std::mutex> guard(m_mutex);
    m_head = position;
    m_count -= records;
    if (m_count == 0 && m_tail % m_capacity != 0) {
        // Empty: go on at the ring's beginning, so that a quiet queue keeps using the same pages.
        m_tail += m_capacity - m_tail % m_capacity;
        m_head = m_tail;
    }
    return m_head;
}

bool CRecordQueue::sleepAfter(Position position)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    m_senderAsleep = m_tail == position;
    return m_senderAsleep;
}

unsigned long long CRecordQueue::takeDropped()
{
    std::lock_guard<std::mutex> guard(m_mutex);
    const unsigned long long dropped = m_dropped;
    m_dropped = 0;
    return dropped;
}

std::size_t CRecordQueue::size() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_count;
}
