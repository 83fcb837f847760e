// The library's syslog traffic (see diag.h).
#include "base/diag.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <pthread.h>
#include <set>
#include <syslog.h>

#include "base/forkSafety.h"

namespace vx {

namespace {

pthread_mutex_t syslogMutex = PTHREAD_MUTEX_INITIALIZER;

const bool registered = (registerForkLock(&syslogMutex, LockRank::SYSLOG, false), true);

class CSyslogLock {
public:
    CSyslogLock() { pthread_mutex_lock(&syslogMutex); }
    ~CSyslogLock() { pthread_mutex_unlock(&syslogMutex); }
    CSyslogLock(const CSyslogLock&) = delete;
    CSyslogLock& operator=(const CSyslogLock&) = delete;
};

// Every identity ever given to openlog, kept for the life of the process (a handful of names).
std::set<std::string>& identities()
{
    static auto* const kept = new std::set<std::string>;
    return *kept;
}

}  // namespace

void diag(int priority, const char* format, ...)
{
    // Callers report errno after a diagnostic of their own (the loader, then the container).
    const int savedErrno = errno;
    va_list args;
    va_start(args, format);
    {
        CSyslogLock guard;
        vsyslog(priority, format, args);
    }
    va_end(args);
    errno = savedErrno;
}

void openSyslog(const std::string& ident)
{
    CSyslogLock guard;
    const char* kept = identities().insert(ident).first->c_str();
    openlog(kept, LOG_PID | LOG_NDELAY, LOG_USER);
}

const char* errnoText(int err)
{
    // The GNU strerror_r returns a pointer to a static text or into the buffer; the buffer is
    // thread-local so the result stays readable after we return.
    static thread_local char buffer[128];
    return strerror_r(err, buffer, sizeof buffer);
}

}  // namespace vx
