// Renaming the chain of rotated files.
#include "CRotation.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <syslog.h>

#include "CFaultReport.h"
#include "coarseClock.h"

CRotation::CRotation(std::string who, unsigned long long maxSize, unsigned maxFiles)
    : m_who(std::move(who))
    , m_maxSize(maxSize)
    , m_maxFiles(maxFiles)
{
}

bool CRotation::rotate(const std::string& path)
{
    if (m_failing && coarseMilliseconds() - m_failedAtMs < CFaultReport::RETRY_MS) {
        return false;
    }
    // From the oldest down, so that every rename finds its target name free or replaceable.
    for (unsigned n = m_maxFiles; n >= 1; --n) {
        const std::string from = n == 1 ? path : path + "." + std::to_string(n - 1);
        const std::string to = path + "." + std::to_string(n);
        if (std::rename(from.c_str(), to.c_str()) != 0 && (errno != ENOENT || n == 1)) {
            if (!m_failing) {
                syslog(LOG_ERR, "%s: cannot rotate: renaming %s to %s failed: %s; writing on to %s", m_who.c_str(),
                       from.c_str(), to.c_str(), std::strerror(errno), path.c_str());
            }
            m_failing = true;
            m_failedAtMs = coarseMilliseconds();
            return false;
        }
    }
    if (m_failing) {
        syslog(LOG_NOTICE, "%s: rotation works again", m_who.c_str());
        m_failing = false;
    }
    return true;
}
