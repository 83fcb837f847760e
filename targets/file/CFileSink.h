// What one process's file target owns: the writer, the buffer of buffer= mode and the thread, all
// under one lock. A fork child leaves its parent's sink alone and makes its own (CFileTarget).
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>

#include "CFileOptions.h"
#include "CFileWriter.h"
#include "CFlushThread.h"
#include "CPathWatch.h"

class CFileSink {
public:
    // Opens `path`; throws std::runtime_error when it cannot. Counts into `counters`.
    CFileSink(const std::string& name, const std::string& path, const CFileOptions& options, CTargetCounters& counters);
    // Ends the thread, then writes what is buffered.
    ~CFileSink();
    CFileSink(const CFileSink&) = delete;
    CFileSink& operator=(const CFileSink&) = delete;

    // One line with its line feed. Without a buffer it is written at once; with one, `urgent`
    // writes it and everything before it at once.
    void append(const char* line, std::size_t length, bool urgent);
    // Writes what is buffered, then goes on in `path`.
    void moveTo(const std::string& path);

private:
    void flushLocked();
    void onPathEvent();

    std::mutex m_mutex;
    CFileWriter m_writer;  // guarded by m_mutex
    const std::size_t m_capacity;  // buffer=; 0: none
    const long long m_flushMs;
    std::unique_ptr<char[]> m_buffer;  // guarded by m_mutex
    std::size_t m_used = 0;  // guarded by m_mutex
    CPathWatch m_watch;
    std::unique_ptr<CFlushThread> m_thread;  // last: it calls into everything above
};
