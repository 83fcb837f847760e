// The file target's writes: rotation, reopening and the accounting of lost records.
#include "CFileWriter.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <syslog.h>

#include "CLineBuffer.h"
#include "coarseClock.h"
#include "writeFully.h"

namespace {

// How often the path is compared with the open file when no inotify event says it changed.
constexpr long long CHECK_MS = 1000;
// Ends a line that a failing write cut, so that the next line starts on a line of its own.
const char CUT[] = " [cut]\n";

unsigned long long lineCount(const char* data, std::size_t length)
{
    return static_cast<unsigned long long>(std::count(data, data + length, '\n'));
}

}  // namespace

CFileWriter::CFileWriter(const std::string& name, const std::string& path, const CFileOptions& options,
                         CTargetCounters& counters)
    : m_name(name)
    , m_counters(counters)
    , m_mode(options.mode)
    , m_rotation(std::string(), options.maxSize, options.maxFiles)
    , m_fault(std::string(), CFaultReport::ERetry::EVERY_RECORD)
    , m_checkEveryWrite(options.bufferSize != 0)
{
    const std::string why = m_file.open(path, m_mode);
    if (!why.empty()) {
        throw std::runtime_error("path=" + path + ": cannot open: " + why);
    }
    m_rotation.setWho(who());
    m_fault.setWho(who());
    m_fault.countInto(m_counters);
    m_nextCheckMs = coarseMilliseconds() + CHECK_MS;
}

CFileWriter::~CFileWriter()
{
    if (m_fault.failing()) {
        checkPath();
        if (m_file.linked()) {
            writeLostNotice();
        }
    }
}

std::string CFileWriter::who() const { return "file target \"" + m_name + "\" (" + m_file.path() + ")"; }

void CFileWriter::write(const char* data, std::size_t length)
{
    checkPathIfDue();
    if (!m_file.linked() && !m_reopenWhy.empty()) {
        // Removed, and the path cannot be made again: a write would go nowhere.
        m_fault.failed("reopen", m_reopenWhy, lineCount(data, length));
        return;
    }
    if (m_fault.failing() && !writeLostNotice()) {
        m_fault.lost(lineCount(data, length));
        return;
    }
    writeRotating(data, length);
}

void CFileWriter::moveTo(const std::string& path)
{
    const std::string why = m_file.open(path, m_mode);
    if (!why.empty()) {
        syslog(LOG_ERR, "%s: cannot move to %s: %s; writing on to %s", who().c_str(), path.c_str(), why.c_str(),
               m_file.path().c_str());
        return;
    }
    m_rotation.setWho(who());
    m_fault.setWho(who());
    m_reopenWhy.clear();
    m_missingSinceMs = -1;
}

void CFileWriter::checkPathIfDue()
{
    // While a fault lasts, every try looks at the path too: the fault may be the path's.
    if (m_checkEveryWrite || m_fault.failing() || coarseMilliseconds() >= m_nextCheckMs) {
        checkPath();
    }
}

void CFileWriter::checkPath()
{
    const long long now = coarseMilliseconds();
    m_nextCheckMs = now + CHECK_MS;
    m_file.refresh();
    switch (m_file.pathState()) {
    case CLogFile::EPath::SAME: m_missingSinceMs = -1; return;
    case CLogFile::EPath::REPLACED: reopenMoved(); return;
    case CLogFile::EPath::MISSING:
        // A removed file comes back at once. A moved one (logrotate's create) gets a second for
        // its mover to create the new file: creating it first would be in the mover's way.
        if (m_file.linked() && m_missingSinceMs < 0) {
            m_missingSinceMs = now;
        } else if (!m_file.linked() || now - m_missingSinceMs >= CHECK_MS) {
            reopenMoved();
        }
        return;
    }
}

bool CFileWriter::reopenMoved()
{
    const bool reopened = reopen(m_file.path());
    m_counters.add(REOPENS, reopened ? 1 : 0);
    return reopened;
}

bool CFileWriter::reopen(const std::string& path)
{
    const bool wasLinked = m_file.linked();
    const std::string why = m_file.open(path, m_mode);
    if (why.empty()) {
        if (m_reopenSaid) {
            syslog(LOG_NOTICE, "%s: reopened", who().c_str());
        }
        m_reopenSaid = false;
        m_reopenWhy.clear();
        m_missingSinceMs = -1;
        return true;
    }
    // A file that still has a name takes the records meanwhile; for a removed one the lost
    // records are the fault's to report (see write).
    if (wasLinked && !m_reopenSaid) {
        syslog(LOG_ERR, "%s: cannot reopen: %s; writing on to the moved file", who().c_str(), why.c_str());
        m_reopenSaid = true;
    }
    m_reopenWhy = why;
    return false;
}

void CFileWriter::writeRotating(const char* data, std::size_t length)
{
    while (length != 0 && m_rotation.due(m_file.size(), length)) {
        m_file.refresh();  // a copytruncate or another process may have changed the size
        if (!m_rotation.due(m_file.size(), length)) {
            break;
        }
        // The lines that fit go into the current file first; an empty file takes at least one.
        const std::size_t room =
            static_cast<std::size_t>(std::min<unsigned long long>(m_rotation.room(m_file.size()), length));
        const void* lastFeed = memrchr(data, '\n', room);
        if (lastFeed == nullptr && m_file.size() == 0) {
            lastFeed = std::memchr(data, '\n', length);
        }
        if (lastFeed != nullptr) {
            const std::size_t fits = static_cast<std::size_t>(static_cast<const char*>(lastFeed) - data) + 1;
            if (!writeChunk(data, fits)) {
                m_fault.lost(lineCount(data + fits, length - fits));
                return;
            }
            data += fits;
            length -= fits;
        }
        if (length != 0 && !rotateNow()) {
            break;  // the rest goes into the current file
        }
    }
    if (length != 0) {
        writeChunk(data, length);
    }
}

bool CFileWriter::rotateNow()
{
    // Every process appending to the file rotates it under its lock, so one at a time. While
    // another one holds it, the lines go on into the file it is moving away (nothing is lost).
    if (m_file.lockForRotation()) {
        m_lockBusySinceMs = -1;
    } else if (!lockHeldTooLong()) {
        return false;
    }
    // A file that is no longer at the path was rotated by another process or moved by logrotate:
    // follow the path instead.
    if (m_file.pathState() != CLogFile::EPath::SAME) {
        const bool reopened = reopenMoved();
        m_file.unlock();
        return reopened;
    }
    const bool rotated = m_rotation.rotate(m_file.path());
    // The new file is made while the lock is held (opening it releases the lock); until it opens,
    // the rotated one (still linked) takes the records.
    if (rotated) {
        m_counters.add(ROTATIONS);
        reopen(m_file.path());
    }
    m_file.unlock();
    return rotated;
}

// A rotation takes milliseconds: a lock held for over a second is held by a stuck process, or by a
// user who may read the file and would stop its rotation for good. Rotation then goes on without.
bool CFileWriter::lockHeldTooLong()
{
    const long long now = coarseMilliseconds();
    if (m_lockBusySinceMs < 0) {
        m_lockBusySinceMs = now;
    }
    if (now - m_lockBusySinceMs < CHECK_MS) {
        return false;
    }
    syslog(LOG_WARNING, "%s: another process has held the rotation lock for over a second; rotating without it",
           who().c_str());
    m_lockBusySinceMs = -1;
    return true;
}

bool CFileWriter::writeChunk(const char* data, std::size_t length)
{
    std::size_t written = 0;
    const int error = writeFully(m_file.fd(), data, length, written);
    m_file.grew(written);
    m_counters.add(CTargetCounters::WRITTEN, lineCount(data, written));
    if (error == 0) {
        return true;
    }
    // Whole lines before the failure are in the file; the cut one and all after it are lost. A
    // write that took nothing leaves the last line as it was.
    if (written > 0) {
        m_lineEnd = data[written - 1] != '\n' ? CUT : "";
    }
    m_fault.failed("write", error, lineCount(data + written, length - written));
    return false;
}

bool CFileWriter::writeLostNotice()
{
    CLineBuffer notice;
    notice.append(m_lineEnd.data(), m_lineEnd.size());
    notice.append("vexlor: ");
    notice.append(who());
    notice.append(": ");
    notice.appendUnsigned(m_fault.lostRecords());
    notice.append(" records lost (");
    notice.append(m_fault.reason());
    notice.append(")\n");
    std::size_t written = 0;
    const int error = writeFully(m_file.fd(), notice.data(), notice.size(), written);
    m_file.grew(written);
    if (error != 0) {
        // The rest of the line end is still due; a notice cut in its turn is ended like a record.
        if (written > m_lineEnd.size()) {
            m_lineEnd = CUT;
        } else {
            m_lineEnd.erase(0, written);
        }
        m_fault.failed("write", error, 0);
        return false;
    }
    m_lineEnd.clear();
    m_fault.recovered();
    return true;
}
