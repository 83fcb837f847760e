// Writes whole lines to the log file and keeps it the right file:
// - rotation before a write that would take the file past max-size (split at a line feed), one
//   process at a time where several append to the file (CLogFile::lockForRotation);
// - a reopen when the path no longer leads to the open file: checked once a second, before every
//   write of a buffer (one stat per buffer, not per record), and at once when the directory
//   changed (checkPath);
// - write errors: one report when they start; records are counted as lost, the next record tries
//   again (a failing write costs no more than one that works), and when it works again a line in
//   the file and a syslog message give the count; at unload one last try writes that line. A line
//   cut by a failing write is ended (" [cut]") before anything else is written.
// Not thread-safe: its owner serialises the calls (CFileSink).
#pragma once

#include <cstddef>
#include <string>

#include "CFaultReport.h"
#include "CFileOptions.h"
#include "CLogFile.h"
#include "CRotation.h"
#include "CTargetCounters.h"

class CFileWriter {
public:
    // The file target's own counters, after the standard ones.
    enum ECounter : unsigned { ROTATIONS = CTargetCounters::OWN, REOPENS };

    // Opens `path`; throws std::runtime_error when it cannot. Counts into `counters`, which
    // outlives the writer.
    CFileWriter(const std::string& name, const std::string& path, const CFileOptions& options,
                CTargetCounters& counters);
    // Writes the count of an open fault into the file if it can (else syslog has it).
    ~CFileWriter();
    CFileWriter(const CFileWriter&) = delete;
    CFileWriter& operator=(const CFileWriter&) = delete;

    const std::string& path() const { return m_file.path(); }
    // `data` holds whole lines, each ended by a line feed.
    void write(const char* data, std::size_t length);
    // Writes to `path` from now on; when it cannot be opened, says so once and keeps the file.
    void moveTo(const std::string& path);
    // Compares the path with the open file now (the directory changed) and reopens it if needed.
    void checkPath();

private:
    std::string who() const;
    void checkPathIfDue();
    bool reopen(const std::string& path);
    // Opens the path again after the file was moved, removed or replaced, and counts it.
    bool reopenMoved();
    void writeRotating(const char* data, std::size_t length);
    bool rotateNow();
    bool lockHeldTooLong();
    bool writeChunk(const char* data, std::size_t length);
    bool writeLostNotice();

    const std::string m_name;
    CTargetCounters& m_counters;
    const mode_t m_mode;
    CLogFile m_file;
    CRotation m_rotation;
    CFaultReport m_fault;
    const bool m_checkEveryWrite;  // buffered: a write carries many records, a stat is cheap beside it
    long long m_nextCheckMs = 0;
    long long m_missingSinceMs = -1;
    long long m_lockBusySinceMs =
        -1;  // when the rotation lock was first found taken  // the path vanished while the file kept a name: it was moved
    std::string m_reopenWhy;  // why the path cannot be opened again; empty while it can
    bool m_reopenSaid = false;  // that failure was reported (writing on to the moved file)
    std::string m_lineEnd;  // what ends a line that a failing write cut (" [cut]\n" or its rest)
};
