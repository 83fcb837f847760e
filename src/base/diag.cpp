// Diagnostics to syslog (see diag.h).
#include "base/diag.h"

#include <cstdarg>
#include <cstring>
#include <syslog.h>

namespace vx {

void diag(int priority, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vsyslog(priority, format, args);
    va_end(args);
}

const char* errnoText(int err)
{
    // The GNU strerror_r returns a pointer to a static text or into the buffer; the buffer is
    // thread-local so the result stays readable after we return.
    static thread_local char buffer[128];
    return strerror_r(err, buffer, sizeof buffer);
}

}  // namespace vx
