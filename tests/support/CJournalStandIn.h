// Stands in for journald in tests of the journal target: a datagram socket bound at the journal's
// socket path inside a private mount namespace (a tmpfs on /run), which receives what libsystemd
// sends and parses the journal's native protocol. The namespace belongs to one thread made for
// the purpose: the rest of the process, and the machine, keep their /run.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

using CJournalEntry = std::map<std::string, std::string>;

// Parses one datagram of the native protocol: "NAME=value\n" fields, and the binary-safe form
// "NAME\n", a 64-bit little-endian length, the value and "\n".
CJournalEntry parseJournalEntry(const std::string& datagram);

class CJournalStandIn {
public:
    // Runs `body` on a new thread with a private /run; `body` creates its stand-in there. Returns
    // false when the namespace could not be made (the reason is in `why`).
    static bool runWithPrivateRun(const std::function<void()>& body, std::string& why);

    CJournalStandIn();  // binds the socket; only inside runWithPrivateRun
    ~CJournalStandIn();
    CJournalStandIn(const CJournalStandIn&) = delete;
    CJournalStandIn& operator=(const CJournalStandIn&) = delete;

    // Waits for `count` entries, each in a datagram of its own (the tests' records are small),
    // and returns those that came (a hang guard ends the wait early).
    std::vector<CJournalEntry> receive(std::size_t count);
    // Closes the socket but leaves its file, as a stopped journald does; open() binds it again.
    void shutDown();
    void open();

private:
    int m_fd = -1;
};
