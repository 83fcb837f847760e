// syslog interposition for tests (see CSyslogCapture.h).
#include "CSyslogCapture.h"

#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <syslog.h>

namespace {

struct CCaptured {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<CSyslogMessage> messages;
    std::vector<COpenlogCall> openlogCalls;
    std::vector<int> setlogmaskCalls;
    int mask = 0xff;
    const char* identity = nullptr;  // as syslog keeps it: the caller's pointer
};

// Never destroyed: threads of the library may still log while the process exits.
CCaptured& captured()
{
    static auto* state = new CCaptured;
    return *state;
}

void record(int priority, const char* format, va_list args)
{
    char buffer[4096];
    vsnprintf(buffer, sizeof buffer, format, args);
    CCaptured& state = captured();
    {
        std::lock_guard<std::mutex> guard(state.mutex);
        state.messages.push_back(CSyslogMessage{LOG_PRI(priority), buffer, priority & LOG_FACMASK});
    }
    state.arrived.notify_all();
}

}  // namespace

extern "C" {

void openlog(const char* ident, int option, int facility)
{
    CCaptured& state = captured();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.openlogCalls.push_back(COpenlogCall{ident != nullptr ? ident : "", option, facility});
    state.identity = ident;
}

void closelog() {}

int setlogmask(int mask)
{
    CCaptured& state = captured();
    std::lock_guard<std::mutex> guard(state.mutex);
    const int previous = state.mask;
    if (mask != 0) {
        state.mask = mask;
        state.setlogmaskCalls.push_back(mask);
    }
    return previous;
}

void vsyslog(int priority, const char* format, va_list args)
{
    record(priority, format, args);
}

void syslog(int priority, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    record(priority, format, args);
    va_end(args);
}

void __vsyslog_chk(int priority, int /*flag*/, const char* format, va_list args)
{
    record(priority, format, args);
}

void __syslog_chk(int priority, int /*flag*/, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    record(priority, format, args);
    va_end(args);
}

}  // extern "C"

CSyslogCapture::CSyslogCapture()
{
    clear();
}

CSyslogCapture::~CSyslogCapture()
{
    clear();
}

std::vector<CSyslogMessage> CSyslogCapture::messages() const
{
    std::lock_guard<std::mutex> guard(captured().mutex);
    return captured().messages;
}

std::vector<COpenlogCall> CSyslogCapture::openlogCalls() const
{
    std::lock_guard<std::mutex> guard(captured().mutex);
    return captured().openlogCalls;
}

std::vector<int> CSyslogCapture::setlogmaskCalls() const
{
    std::lock_guard<std::mutex> guard(captured().mutex);
    return captured().setlogmaskCalls;
}

int CSyslogCapture::count(const std::string& text, int priority) const
{
    int n = 0;
    for (const CSyslogMessage& message : messages()) {
        if (message.text == text && (priority < 0 || message.priority == priority)) {
            ++n;
        }
    }
    return n;
}

int CSyslogCapture::countContaining(const std::string& fragment) const
{
    int n = 0;
    for (const CSyslogMessage& message : messages()) {
        if (message.text.find(fragment) != std::string::npos) {
            ++n;
        }
    }
    return n;
}

bool CSyslogCapture::waitFor(const std::string& text, std::chrono::seconds timeout) const
{
    CCaptured& state = captured();
    std::unique_lock<std::mutex> lock(state.mutex);
    return state.arrived.wait_for(lock, timeout, [&] {
        for (const CSyslogMessage& message : state.messages) {
            if (message.text == text) {
                return true;
            }
        }
        return false;
    });
}

void CSyslogCapture::clear()
{
    std::lock_guard<std::mutex> guard(captured().mutex);
    captured().messages.clear();
    captured().openlogCalls.clear();
    captured().setlogmaskCalls.clear();
}

const char* capturedIdentity()
{
    CCaptured& state = captured();
    std::lock_guard<std::mutex> guard(state.mutex);
    return state.identity;
}

int capturedLogMask()
{
    std::lock_guard<std::mutex> guard(captured().mutex);
    return captured().mask;
}
