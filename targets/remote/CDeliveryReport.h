// The sender's reports to syslog: one message when a fault starts (the relay unreachable, a
// connection lost with records unconfirmed, a run of dropped records, records the relay refused)
// and one when it ends, with exact counts; never one per record. The same counts, from the start,
// go into the sender's counters: written (confirmed), dropped (queue full, or left at the end),
// lost (refused), reconnects and sent-again.
#pragma once

#include <cstdint>
#include <string>

#include "CSenderSettings.h"

class CDeliveryReport {
public:
    explicit CDeliveryReport(const CSenderSettings& settings)
        : m_settings(settings)
    {
    }

    // An attempt to connect failed, or a connection ended before the relay took anything.
    void attemptFailed(const std::string& error);
    // A connection ended after the relay took records; `unconfirmed` were not confirmed yet.
    void connectionLost(const std::string& error, std::size_t unconfirmed);
    // A connection ended with a reset after every record on it was confirmed: nothing to send
    // again, but a relay whose TCP confirms may have dropped what it had received.
    void connectionReset(const std::string& error);
    bool faultOpen() const { return m_faultOpen; }
    // A connection opened; during a fault, the fault ends once the queue is through `backlogEnd`.
    void connected(std::uint64_t backlogEnd);
    // Records the relay confirmed; the queue's oldest record is now at `head`.
    void delivered(unsigned long long records, std::uint64_t head);
    // Records sent again after a lost connection: the relay may hold them twice.
    void sentAgain(unsigned long long records);
    // A record the relay refused with `answer`.
    void refused(const std::string& answer);
    // Records the relay's TCP had taken on a connection that the relay then refused: lost.
    void lostInRefusedConnection(unsigned long long records);
    // Records the full queue dropped.
    void dropped(unsigned long long records);
    // The sender found no record waiting: a run of drops has ended.
    void queueEmpty();
    // The sender's end: `unsent` records were neither confirmed nor refused in time.
    void finish(std::size_t unsent);

private:
    void openFault();
    void endDropRun();
    void endFault();
    void count(unsigned counter, unsigned long long records);

    const CSenderSettings& m_settings;
    unsigned long long m_connections = 0;
    unsigned m_failures = 0;  // failed attempts in the open fault
    bool m_faultOpen = false;
    bool m_backlogKnown = false;  // a connection opened during the fault: m_backlogEnd holds
    std::uint64_t m_backlogEnd = 0;
    // Counts of the open fault.
    unsigned long long m_delivered = 0, m_sentAgain = 0, m_dropped = 0, m_lost = 0;
    // A run of drops outside a fault.
    unsigned long long m_droppedInRun = 0;
    bool m_dropRun = false;
    // Records the relay refused since it last took one.
    unsigned long long m_refused = 0;
};
