// One configuration read: choose the file in force, apply its `component` and `target` lines,
// then sweep the targets it no longer names.
#pragma once

#include <atomic>
#include <set>
#include <string>

#include "config/IConfigReadClient.h"
#include "levels/IComponentCfgUpdateSink.h"

// A `component` value split into its two elements, as written and as applied.
struct CComponentLine {
    std::string writtenName;
    std::string writtenBits;
    std::string name;  // trimmed
    std::string bits;  // trimmed, every white-space character removed
};

class CConfigRead {
public:
    CConfigRead(IConfigReadClient& client, IComponentCfgUpdateSink* sink)
        : m_client(client)
        , m_sink(sink)
    {
    }
    CConfigRead(const CConfigRead&) = delete;
    CConfigRead& operator=(const CConfigRead&) = delete;

    static std::string defaultFile(const std::string& directory);
    static std::string appFile(const std::string& directory, const std::string& appname);

    // The whole read, under the client's lock.
    void run(const std::string& directory, const std::string& appname);
    // False before the first read and after a failed one.
    bool hasSyslogTarget() const { return m_hasSyslogTarget.load(std::memory_order_relaxed); }

    // The reader's callback; `read` is the CConfigRead. 1 stops the read.
    static int onEntry(const char* key, const char* value, void* read);
    // One entry by its key.
    int dispatch(const std::string& key, const std::string& value);
    // One `component` value; always 0.
    int applyComponentLine(const std::string& value);
    // False unless the value has exactly two comma-separated elements.
    static bool parseComponentLine(const std::string& value, CComponentLine& line);

private:
    // The file in force: the application's own if it is set and that file exists, else the default.
    std::string fileInForce(const std::string& directory, const std::string& appname);
    // True for a regular file; a path that exists as something else is reported once, then
    // treated as missing (a directory would read as empty, a FIFO would block the open).
    bool usable(const std::string& path);

    IConfigReadClient& m_client;
    IComponentCfgUpdateSink* const m_sink;  // null for containers without a core (tests, tools)
    // Cleared for each read, set by a successful sweep; read without the lock by the syslog-style
    // call, which at worst writes to syslog itself once more.
    std::atomic<bool> m_hasSyslogTarget{false};
    std::set<std::string> m_reportedUnusable;  // guarded by the client's lock
};
