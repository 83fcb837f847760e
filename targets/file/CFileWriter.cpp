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

unsigned long long lineCount(const char* data, std::size_t length)
{
    return static_cast<unsigned long long>(std::count(data, data + length, '\n'));
}

}  // namespace

CFileWriter::CFileWriter(const std::string& name, const std::string& path, const CFileOptions& options)
    : m_name(name)
    , m_mode(options.mode)
    , m_rotation(std::string(), options.maxSize, options.maxFiles)
    , m_fault(std::string())
    , m_checkEveryWrite(options.bufferSize != 0)
{
    if (const int error = m_file.open(path, m_mode)) {
        throw std::runtime_error("path=" + path + ": cannot open: " + std::strerror(error));
    }
    m_rotation.setWho(who());
    m_fault.setWho(who());
    m_nextCheckMs = coarseMilliseconds() + CHECK_MS;
}

std::string CFileWriter::who() const { return "file target \"" + m_name + "\" (" + m_file.path() + ")"; }

void CFileWriter::write(const char* data, std::size_t length)
{
    if (!m_fault.retryDue()) {
        m_fault.lost(lineCount(data, length));
        return;
    }
    checkPathIfDue();
    if (!m_file.linked() && m_reopenError != 0) {
        // Removed, and the path cannot be made again: a write would go nowhere.
        m_fault.failed("reopen", m_reopenError, lineCount(data, length));
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
    if (const int error = m_file.open(path, m_mode)) {
        syslog(LOG_ERR, "%s: cannot move to %s: %s; writing on to %s", who().c_str(), path.c_str(),
               std::strerror(error), m_file.path().c_str());
        return;
    }
    m_rotation.setWho(who());
    m_fault.setWho(who());
    m_reopenError = 0;
    m_missingSinceMs = -1;
}

void CFileWriter::checkPathIfDue()
{
    // While a fault lasts, every retry looks at the path too: the fault may be the path's.
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
    case CLogFile::EPath::REPLACED: reopen(m_file.path()); return;
    case CLogFile::EPath::MISSING:
        // A removed file comes back at once. A moved one (logrotate's create) gets a second for
        // its mover to create the new file: creating it first would be in the mover's way.
        if (m_file.linked() && m_missingSinceMs < 0) {
            m_missingSinceMs = now;
        } else if (!m_file.linked() || now - m_missingSinceMs >= CHECK_MS) {
            reopen(m_file.path());
        }
        return;
    }
}

bool CFileWriter::reopen(const std::string& path)
{
    const bool wasLinked = m_file.linked();
    const int error = m_file.open(path, m_mode);
    if (error == 0) {
        if (m_reopenSaid) {
            syslog(LOG_NOTICE, "%s: reopened", who().c_str());
        }
        m_reopenSaid = false;
        m_reopenError = 0;
        m_missingSinceMs = -1;
        return true;
    }
    // A file that still has a name takes the records meanwhile; for a removed one the lost
    // records are the fault's to report (see write).
    if (wasLinked && !m_reopenSaid) {
        syslog(LOG_ERR, "%s: cannot reopen: %s; writing on to the moved file", who().c_str(), std::strerror(error));
        m_reopenSaid = true;
    }
    m_reopenError = error;
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
    // A file that is no longer at the path is someone else's business: follow the path instead.
    if (m_file.pathState() != CLogFile::EPath::SAME) {
        return reopen(m_file.path());
    }
    if (!m_rotation.rotate(m_file.path())) {
        return false;
    }
    // Until the new file opens, the rotated one (still linked) takes the records.
    reopen(m_file.path());
    return true;
}

bool CFileWriter::writeChunk(const char* data, std::size_t length)
{
    std::size_t written = 0;
    const int error = writeFully(m_file.fd(), data, length, written);
    m_file.grew(written);
    if (error == 0) {
        return true;
    }
    // Whole lines before the failure are in the file; the cut one and all after it are lost.
    m_lineCut = written > 0 && data[written - 1] != '\n';
    m_fault.failed("write", error, lineCount(data + written, length - written));
    return false;
}

bool CFileWriter::writeLostNotice()
{
    CLineBuffer notice;
    if (m_lineCut) {
        notice.append(" [cut]\n");
    }
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
        m_lineCut = written > 0 && notice.data()[written - 1] != '\n';
        m_fault.failed("write", error, 0);
        return false;
    }
    m_lineCut = false;
    m_fault.recovered();
    return true;
}
