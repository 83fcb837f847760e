// vexlor-check runs the library's own reader, grammar and loader, which report to syslog. The
// tool defines the syslog functions itself (syslogCapture.cpp), so those reports become part of
// its output instead of going to the machine's log. The executable exports them, so plug-ins
// opened by --load report here too.
#pragma once

#include <string>
#include <vector>

struct CLogged {
    int priority;  // without the facility
    std::string text;
};

// What was sent to syslog since the last call.
std::vector<CLogged> takeLogged();
