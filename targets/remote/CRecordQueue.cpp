// The bounded record queue: a ring of reusable slots.
#include "CRecordQueue.h"

#include <utility>

CRecordQueue::CRecordQueue(std::size_t capacity, CWaiter& waiter)
    : m_capacity(capacity)
    , m_waiter(waiter)
{
}

bool CRecordQueue::push(int pid, int depth, long long seconds, int microseconds, int severity,
                        const std::string& appname, const std::string& thread, const std::string& component,
                        const std::string& function, const std::string& message)
{
    bool stored = false;
    bool wake = false;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_count == m_capacity) {
            wake = m_dropped++ == 0;
        } else {
            std::size_t index = m_first + m_count;
            if (index >= m_capacity) {
                index -= m_capacity;
            }
            if (index == m_slots.size()) {
                m_slots.emplace_back();
            }
            CQueuedRecord& slot = m_slots[index];
            slot.pid = pid;
            slot.depth = depth;
            slot.seconds = seconds;
            slot.microseconds = microseconds;
            slot.severity = severity;
            slot.appname.assign(appname);
            slot.thread.assign(thread);
            slot.component.assign(component);
            slot.function.assign(function);
            slot.message.assign(message);
            ++m_count;
            stored = true;
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

bool CRecordQueue::pop(CQueuedRecord& record, unsigned long long& dropped)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    dropped = m_dropped;
    m_dropped = 0;
    if (m_count == 0) {
        m_senderAsleep = true;
        return false;
    }
    CQueuedRecord& slot = m_slots[m_first];
    record.pid = slot.pid;
    record.depth = slot.depth;
    record.seconds = slot.seconds;
    record.microseconds = slot.microseconds;
    record.severity = slot.severity;
    std::swap(record.appname, slot.appname);
    std::swap(record.thread, slot.thread);
    std::swap(record.component, slot.component);
    std::swap(record.function, slot.function);
    std::swap(record.message, slot.message);
    m_first = m_first + 1 == m_capacity ? 0 : m_first + 1;
    --m_count;
    return true;
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
