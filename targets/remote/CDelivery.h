// The sender thread's work: takes the records from the queue in order, formats a batch of them
// for one write, and keeps every record in the queue until the relay has confirmed it; a record
// that a lost connection left unconfirmed is sent again, before any newer one, on the next.
// Connects with exponential back-off; a connection that ends before the relay took anything is a
// failed attempt. Sleeps while the queue is empty. Runs on the sender thread only.
#pragma once

#include <deque>
#include <memory>
#include <string>

#include "CDeliveryReport.h"
#include "CRecordQueue.h"
#include "CSenderSettings.h"
#include "CTransport.h"
#include "CWaiter.h"
#include "Rfc5424.h"

class CDelivery {
public:
    CDelivery(const CSenderSettings& settings, CRfc5424Options format, CRecordQueue& queue, CWaiter& waiter,
              std::unique_ptr<CTransport> transport);

    // Delivers until the waiter's stop request once the queue is empty, or its deadline; then
    // counts and reports what was not delivered.
    void run();

    // The socket, for a fork child that must close its copy without touching anything else.
    int socketFd() const { return m_transport->fd(); }

private:
    using Clock = CWaiter::Clock;
    using Position = CRecordQueue::Position;

    struct CSent {
        Position end;  // where the record ends in the queue
        std::uint64_t mark;  // the transport's mark of its frame
    };

    bool connect();
    // One round on an open connection: what the relay said, confirmations, a batch written, or a
    // wait. False with `error` set when the connection ended or failed.
    bool exchange(std::string& error);
    void fill();
    void confirm();
    void lose(const std::string& error);
    void attemptFailed(const std::string& error);
    // Waits for what comes next when nothing can be written now; false with `error` set when the
    // relay owes answers for too long.
    bool await(std::string& error);
    void idle(int fd, Clock::time_point until);
    // When the relay's next answer is due (it answers, and records wait for one).
    Clock::time_point answerDue() const;
    bool answerOverdue(std::string& error) const;

    const CSenderSettings& m_settings;
    CRfc5424Formatter m_formatter;
    CRecordQueue& m_queue;
    CWaiter& m_waiter;
    const std::unique_ptr<CTransport> m_transport;
    CDeliveryReport m_report;

    Position m_cursor = 0;  // the next record to frame
    Position m_resendEnd = 0;  // records before it are sent again
    std::deque<CSent> m_inFlight;  // framed on this connection and not confirmed, oldest first
    std::size_t m_confirmedOnConnection = 0;
    std::string m_batch;  // frames for one write
    std::size_t m_batchWritten = 0;  // bytes of m_batch the connection took
    std::string m_message;  // the formatted record at m_cursor, when m_formatted
    bool m_formatted = false;
    Position m_messageEnd = 0;  // where that record ends in the queue
    bool m_napped = false;  // the last wait was a nap, unnoticed by the log calls
    Clock::time_point m_lastAnswer{};  // when the relay last confirmed, or the wait for it began
    Clock::duration m_ackPoll = std::chrono::milliseconds(10);  // the next look at TCP's acknowledgements

    unsigned m_failures = 0;  // failed attempts since the relay last took a record
    Clock::time_point m_nextAttempt{};
};
