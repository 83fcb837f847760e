// The syslog functions of vexlor-check (see syslogCapture.h), including the fortified variants
// that callers built with _FORTIFY_SOURCE reach.
#include "syslogCapture.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <syslog.h>

namespace {

std::mutex loggedMutex;
std::vector<CLogged> logged;  // guarded by loggedMutex: a plug-in's thread may log too

void record(int priority, const char* format, va_list args)
{
    char text[2048];
    std::vsnprintf(text, sizeof text, format, args);
    std::lock_guard<std::mutex> guard(loggedMutex);
    logged.push_back({LOG_PRI(priority), text});
}

}  // namespace

std::vector<CLogged> takeLogged()
{
    std::lock_guard<std::mutex> guard(loggedMutex);
    std::vector<CLogged> taken;
    taken.swap(logged);
    return taken;
}

extern "C" {

void openlog(const char*, int, int) { }
void closelog() { }
int setlogmask(int mask) { return mask != 0 ? mask : LOG_UPTO(LOG_DEBUG); }

void vsyslog(int priority, const char* format, va_list args) { record(priority, format, args); }

void syslog(int priority, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    record(priority, format, args);
    va_end(args);
}

void __vsyslog_chk(int priority, int, const char* format, va_list args) { record(priority, format, args); }

void __syslog_chk(int priority, int, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    record(priority, format, args);
    va_end(args);
}

}  // extern "C"
