// syslog interposition for tests (see CSyslogCapture.h).
#include "CSyslogCapture.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <syslog.h>

#include "waitUntil.h"

namespace {

struct CCaptured {
    std::mutex mutex;
    std::vector<CSyslogMessage> messages;
    std::vector<COpenlogCall> openlogCalls;
    int mask = 0xff;
    const char* identity = nullptr;  // as syslog keeps it: the caller's pointer
};

// Never destroyed: threads of the library may still log while the process exits.
CCaptured& captured()
{
    static auto* state = new CCaptured;
    return *state;
}

template <typename T>
T snapshot(const T& member)
{
    std::lock_guard<std::mutex> guard(captured().mutex);
    return member;
}

// How many messages at `priority` (any, when < 0) have a text that `matches`.
template <typename Matches>
int countWhere(int priority, Matches matches)
{
    const std::vector<CSyslogMessage> all = snapshot(captured().messages);
    return static_cast<int>(std::count_if(all.begin(), all.end(), [&](const CSyslogMessage& m) {
        return (priority < 0 || m.priority == priority) && matches(m.text);
    }));
}

void record(int priority, const char* format, va_list args)
{
    char buffer[4096];
    vsnprintf(buffer, sizeof buffer, format, args);
    std::lock_guard<std::mutex> guard(captured().mutex);
    captured().messages.push_back(CSyslogMessage{LOG_PRI(priority), buffer, priority & LOG_FACMASK});
}

}  // namespace

extern "C" {

void openlog(const char* ident, int option, int facility)
{
    std::lock_guard<std::mutex> guard(captured().mutex);
    captured().openlogCalls.push_back(COpenlogCall{ident != nullptr ? ident : "", option, facility});
    captured().identity = ident;
}

void closelog() { }

int setlogmask(int mask)
{
    std::lock_guard<std::mutex> guard(captured().mutex);
    const int previous = captured().mask;
    captured().mask = mask != 0 ? mask : previous;
    return previous;
}

void vsyslog(int priority, const char* format, va_list args) { record(priority, format, args); }
void __vsyslog_chk(int priority, int /*flag*/, const char* format, va_list args) { record(priority, format, args); }

void syslog(int priority, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    record(priority, format, args);
    va_end(args);
}

void __syslog_chk(int priority, int /*flag*/, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    record(priority, format, args);
    va_end(args);
}

}  // extern "C"

std::vector<CSyslogMessage> CSyslogCapture::messages() const { return snapshot(captured().messages); }
std::vector<COpenlogCall> CSyslogCapture::openlogCalls() const { return snapshot(captured().openlogCalls); }

int CSyslogCapture::count(const std::string& text, int priority) const
{
    return countWhere(priority, [&](const std::string& t) { return t == text; });
}

int CSyslogCapture::countStarting(const std::string& prefix, int priority) const
{
    return countWhere(priority, [&](const std::string& t) { return t.rfind(prefix, 0) == 0; });
}

int CSyslogCapture::countContaining(const std::string& fragment, int priority) const
{
    return countWhere(priority, [&](const std::string& t) { return t.find(fragment) != std::string::npos; });
}

bool CSyslogCapture::waitFor(const std::string& text) const
{
    return waitUntil([&] { return count(text) > 0; });
}

void CSyslogCapture::clear()
{
    std::lock_guard<std::mutex> guard(captured().mutex);
    captured().messages.clear();
    captured().openlogCalls.clear();
}

const char* capturedIdentity() { return snapshot(captured().identity); }
int capturedLogMask() { return snapshot(captured().mask); }
