// The sender thread's loop: connect, write batches, take confirmations, wait.
#include "CDelivery.h"

#include <algorithm>
#include <poll.h>

namespace {

using std::chrono::milliseconds;

// When the queue has run empty, the sender naps this long before it sleeps: the log calls of a
// busy program then never pay for waking it, and each round carries a batch.
constexpr milliseconds NAP{1};
// How soon the sender looks at TCP's acknowledgements again while it waits for them: at first
// soon, so that records the relay has stop holding room in the queue, then less and less often
// (a connection that hangs), but soon again while a fault or the drain waits for them.
constexpr milliseconds ACK_POLL{10};
constexpr milliseconds ACK_POLL_MAX{1000};
constexpr short RELAY_EVENTS = POLLIN | POLLRDHUP;

}  // namespace

CDelivery::CDelivery(const CSenderSettings& settings, CRfc5424Options format, CRecordQueue& queue, CWaiter& waiter,
                     std::unique_ptr<CTransport> transport)
    : m_settings(settings)
    , m_formatter(std::move(format))
    , m_queue(queue)
    , m_waiter(waiter)
    , m_transport(std::move(transport))
    , m_report(settings)
{
}

void CDelivery::run()
{
    for (;;) {
        m_report.dropped(m_queue.takeDropped());
        if (m_waiter.expired() || (m_waiter.stopping() && m_queue.size() == 0)) {
            break;
        }
        if (!m_transport->isOpen()) {
            // A connection is opened only for a record to send.
            if (m_cursor == m_queue.end()) {
                m_report.queueEmpty();
                idle(-1, Clock::time_point::max());
                continue;
            }
            if (!connect()) {
                continue;
            }
        }
        std::string error;
        if (!exchange(error)) {
            lose(error);
        }
    }
    m_report.finish(m_queue.size());
    m_transport->close(Clock::now() + milliseconds(m_settings.connectTimeoutMs));
}

bool CDelivery::connect()
{
    while (m_failures > 0 && Clock::now() < m_nextAttempt) {
        m_waiter.sleep(m_nextAttempt);
        m_report.dropped(m_queue.takeDropped());
        if (m_waiter.expired()) {
            return false;
        }
    }
    std::string error;
    if (!m_transport->open(Clock::now() + milliseconds(m_settings.connectTimeoutMs), error)) {
        attemptFailed(error);
        return false;
    }
    m_cursor = m_queue.begin();
    m_formatted = false;
    m_confirmedOnConnection = 0;
    m_report.connected(m_queue.end());
    return true;
}

void CDelivery::attemptFailed(const std::string& error)
{
    m_report.attemptFailed(error);
    const long long delay = std::min<long long>(static_cast<long long>(m_settings.retryMs) << std::min(m_failures, 20u),
                                                m_settings.retryMaxMs);
    ++m_failures;
    m_nextAttempt = Clock::now() + milliseconds(delay);
}

bool CDelivery::exchange(std::string& error)
{
    if (m_transport->listens() && !m_transport->receive(error)) {
        return false;
    }
    confirm();
    if (m_batchWritten == m_batch.size()) {
        fill();
    }
    if (m_batchWritten == m_batch.size()) {
        return await(error);
    }
    const long written = m_transport->write(m_batch.data() + m_batchWritten, m_batch.size() - m_batchWritten, error);
    if (written < 0) {
        return false;
    }
    m_batchWritten += static_cast<std::size_t>(written);
    if (m_batchWritten < m_batch.size()) {
        // A slow relay: wait for room, and for what it says meanwhile.
        m_waiter.wait(m_transport->fd(), m_transport->listens() ? POLLOUT | RELAY_EVENTS : POLLOUT, answerDue());
        return !answerOverdue(error);
    }
    return true;
}

void CDelivery::fill()
{
    m_batch.clear();
    m_batchWritten = 0;
    const Position end = m_queue.end();
    const std::size_t limit = m_transport->batchLimit();
    while (m_cursor != end && m_inFlight.size() < m_transport->window()) {
        if (!m_formatted) {
            CQueuedRecord record;
            m_messageEnd = m_cursor;
            m_queue.read(m_messageEnd, record);
            m_message.clear();
            m_formatter.append(record, m_message);
            m_formatted = true;
        }
        // Room for the frame's own bytes (a length, a RELP header) besides the message.
        if (!m_batch.empty() && (limit == 0 || m_batch.size() + m_message.size() + 32 > limit)) {
            break;
        }
        if (m_inFlight.empty()) {
            m_lastAnswer = Clock::now();
        }
        if (m_cursor < m_resendEnd) {
            m_report.sentAgain(1);
        }
        m_inFlight.push_back({m_messageEnd, m_transport->frame(m_message, m_batch)});
        m_cursor = m_messageEnd;
        m_formatted = false;
    }
    if (!m_batch.empty()) {
        m_napped = false;
    }
}

void CDelivery::confirm()
{
    if (m_inFlight.empty()) {
        return;
    }
    const std::uint64_t mark = m_transport->confirmed();
    std::size_t count = 0;
    unsigned long long delivered = 0;
    Position end = 0;
    std::string answer;
    while (!m_inFlight.empty() && m_inFlight.front().mark <= mark) {
        if (m_transport->refusedRecord(m_inFlight.front().mark, answer)) {
            if (delivered > 0) {
                // Those came before the refusal: they do not end it.
                m_report.delivered(delivered, end);
                delivered = 0;
            }
            m_report.refused(answer);
        } else {
            ++delivered;
        }
        end = m_inFlight.front().end;
        m_inFlight.pop_front();
        ++count;
    }
    if (count == 0) {
        return;
    }
    m_cursor = std::max(m_cursor, m_queue.release(end, count));
    m_confirmedOnConnection += count;
    m_failures = 0;
    m_lastAnswer = Clock::now();
    m_ackPoll = ACK_POLL;
    m_report.delivered(delivered, end);
}

void CDelivery::lose(const std::string& error)
{
    confirm();  // what the relay confirmed before the end counts
    const bool refused = m_transport->refused();
    const bool reset = m_transport->reset();
    m_transport->abandon();
    const std::size_t unconfirmed = m_inFlight.size();
    const bool tookNothing = refused || m_confirmedOnConnection == 0;
    if (refused) {
        m_report.lostInRefusedConnection(m_confirmedOnConnection);
    }
    // Only a relay that confirms records itself may hold an unconfirmed one already; what a
    // relay's TCP did not acknowledge never reached it.
    if (!tookNothing && unconfirmed > 0 && m_transport->acknowledges()) {
        m_resendEnd = std::max(m_resendEnd, m_inFlight.back().end);
    }
    m_inFlight.clear();
    m_batch.clear();
    m_batchWritten = 0;
    m_formatted = false;
    m_cursor = m_queue.begin();
    // A relay that closes in order has read what its TCP acknowledged; one that resets may not have.
    const char* const note = reset && !m_transport->acknowledges()
        ? "; records that its TCP had acknowledged may be lost (plain syslog cannot tell how many)"
        : "";
    if (tookNothing || m_transport->faulty()) {
        attemptFailed(error);
    } else if (unconfirmed > 0) {
        m_report.connectionLost(error + note, unconfirmed);  // a fault until they are delivered
    } else if (reset) {
        m_report.connectionReset(error + note);
    }
    m_confirmedOnConnection = 0;
}

bool CDelivery::await(std::string& error)
{
    const bool windowFull = m_inFlight.size() >= m_transport->window();
    if (!windowFull && m_cursor != m_queue.end()) {
        return true;  // more to send at once
    }
    const int fd = m_transport->listens() ? m_transport->fd() : -1;
    if (answerOverdue(error)) {
        return false;
    }
    Clock::time_point until = answerDue();
    if (!m_inFlight.empty() && !m_transport->answers()) {
        const bool urgent = m_report.faultOpen() || m_waiter.stopping();
        until = Clock::now() + (urgent ? ACK_POLL : m_ackPoll);
        m_ackPoll = std::min<Clock::duration>(m_ackPoll * 2, ACK_POLL_MAX);
    }
    if (windowFull) {
        m_waiter.wait(fd, RELAY_EVENTS, until);
    } else {
        m_report.queueEmpty();
        idle(fd, until);
    }
    return true;
}

CDelivery::Clock::time_point CDelivery::answerDue() const
{
    // A relay that answers has connect-timeout-ms from its last answer for the next one.
    if (m_inFlight.empty() || !m_transport->answers()) {
        return Clock::time_point::max();
    }
    return m_lastAnswer + milliseconds(m_settings.connectTimeoutMs);
}

bool CDelivery::answerOverdue(std::string& error) const
{
    if (Clock::now() < answerDue()) {
        return false;
    }
    error = "no answer for " + std::to_string(m_settings.connectTimeoutMs) + " ms";
    return true;
}

void CDelivery::idle(int fd, Clock::time_point until)
{
    if (!m_napped) {
        m_napped = true;
        m_waiter.wait(fd, RELAY_EVENTS, std::min(until, Clock::now() + NAP));
        return;
    }
    m_napped = false;
    if (m_queue.sleepAfter(m_cursor)) {
        m_waiter.wait(fd, RELAY_EVENTS, until);
    }
}
