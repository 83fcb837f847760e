// Buffering and locking of the file target's writes.
#include "CFileSink.h"

#include <cstring>

CFileSink::CFileSink(const std::string& name, const std::string& path, const CFileOptions& options,
                     CTargetCounters& counters)
    : m_writer(name, path, options, counters)
    , m_capacity(options.bufferSize)
    , m_flushMs(options.flushMs)
    , m_buffer(options.bufferSize != 0 ? new char[options.bufferSize] : nullptr)
{
    m_watch.watch(path);
    // Without a buffer and without inotify there is nothing for a thread to wait for.
    if (m_capacity != 0 || m_watch.fd() >= 0) {
        m_thread = std::make_unique<CFlushThread>(
            m_watch.fd(), [this] { onPathEvent(); },
            [this] {
                std::lock_guard<std::mutex> guard(m_mutex);
                flushLocked();
            });
    }
}

CFileSink::~CFileSink()
{
    m_thread.reset();
    std::lock_guard<std::mutex> guard(m_mutex);
    flushLocked();
}

void CFileSink::append(const char* line, std::size_t length, bool urgent)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_capacity == 0) {
        m_writer.write(line, length);
        return;
    }
    if (m_used + length > m_capacity) {
        flushLocked();
    }
    if (length > m_capacity) {
        m_writer.write(line, length);  // longer than the whole buffer
        return;
    }
    const bool wasEmpty = m_used == 0;
    std::memcpy(m_buffer.get() + m_used, line, length);
    m_used += length;
    if (urgent) {
        flushLocked();
    } else if (wasEmpty) {
        m_thread->dueIn(m_flushMs);  // the first unwritten record starts the clock
    }
}

void CFileSink::moveTo(const std::string& path)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    flushLocked();
    m_writer.moveTo(path);
    m_watch.watch(m_writer.path());
}

void CFileSink::flushLocked()
{
    if (m_used != 0) {
        m_writer.write(m_buffer.get(), m_used);
        m_used = 0;
    }
}

// At once rather than at the next record: after logrotate's move, every record that still goes
// into the moved file may be lost when logrotate compresses that file right away.
void CFileSink::onPathEvent()
{
    if (m_watch.drain()) {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_writer.checkPath();
    }
}
