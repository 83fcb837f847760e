// Captures what the process sends to syslog: the test executable defines openlog, syslog,
// vsyslog, setlogmask, closelog and the fortified __syslog_chk/__vsyslog_chk, which take
// precedence over the C library's for the library and the plug-ins alike. Nothing reaches the
// machine's syslog. Messages are kept whether or not the current mask would pass them.
#pragma once

#include <string>
#include <vector>

struct CSyslogMessage {
    int priority;  // without the facility
    std::string text;
    int facility;  // as passed (LOG_USER, LOG_LOCAL3, ...), 0 when none was given
};

struct COpenlogCall {
    std::string ident;
    int option;
    int facility;
};

// Scoped: starts with an empty capture and clears it again at the end.
class CSyslogCapture {
public:
    CSyslogCapture() { clear(); }
    ~CSyslogCapture() { clear(); }
    CSyslogCapture(const CSyslogCapture&) = delete;
    CSyslogCapture& operator=(const CSyslogCapture&) = delete;

    std::vector<CSyslogMessage> messages() const;
    std::vector<COpenlogCall> openlogCalls() const;
    // How many messages have exactly this text (at this priority, if given).
    int count(const std::string& text, int priority = -1) const;
    // How many messages start with `prefix` (contain `fragment`): enough where a test needs to
    // know only that a failure was reported, not its whole text.
    int countStarting(const std::string& prefix, int priority = -1) const;
    int countContaining(const std::string& fragment, int priority = -1) const;
    // Waits until a message with this text arrived (for messages of other threads).
    bool waitFor(const std::string& text) const;
    void clear();
};

// The current mask as the last setlogmask call left it (0xff before any call).
int capturedLogMask();
// The identity pointer of the last openlog call, as syslog itself would go on using it.
const char* capturedIdentity();
