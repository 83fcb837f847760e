// Probes shared by the target tests: whether a plug-in library is mapped, the quoting of paths in
// the library's messages, and what syslog and the recording plug-in saw since the last look.
#pragma once

#include <dlfcn.h>
#include <string>
#include <syslog.h>
#include <vector>

#include "CRecorder.h"
#include "CSyslogCapture.h"

inline bool isOpen(const std::string& path)
{
    void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    return handle != nullptr && dlclose(handle) == 0;
}

inline std::string quoted(const std::string& text) { return "\"" + text + "\""; }

// The captured messages up to `maxPriority` as "<priority> <text>"; the capture is cleared.
inline std::vector<std::string> takeLines(CSyslogCapture& syslog, int maxPriority = LOG_DEBUG)
{
    std::vector<std::string> lines;
    for (const CSyslogMessage& message : syslog.messages()) {
        if (message.priority <= maxPriority) {
            lines.push_back(std::to_string(message.priority) + " " + message.text);
        }
    }
    syslog.clear();
    return lines;
}

// The recorded calls other than records and factory look-ups, as "<kind>[:<target>]"; the
// recorder is cleared.
inline std::vector<std::string> takeEvents()
{
    std::vector<std::string> events;
    for (const CRecordedCall& call : CRecorder::instance().calls()) {
        if (call.kind != "log" && call.kind != "factory") {
            events.push_back(call.kind + (call.target.empty() ? "" : ":" + call.target));
        }
    }
    CRecorder::instance().clear();
    return events;
}
