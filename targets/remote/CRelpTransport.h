// RELP, the Reliable Event Logging Protocol, over TCP or TLS: the relay answers every record, so
// a record leaves the queue only once the relay itself has taken it. Frames in both directions:
//   TXNR SP COMMAND SP DATALEN [SP DATA] LF
// TXNR: the transaction number, 1 to 999999999 and then 1 again (0 in the relay's serverclose);
// DATALEN: the bytes of DATA, which may hold any byte. The client opens the session with `open`,
// offering "relp_version=0", its name and "commands=syslog", and the relay answers `rsp` with
// "200 OK" and its own offers; then every record is a `syslog` command whose `rsp` the relay sends
// in order ("200 OK", or an error status that refuses the record); `close` ends the session, and
// the relay may end it with `serverclose`. At most `window` records are unanswered at a time.
#pragma once

#include <deque>
#include <memory>
#include <utility>

#include "CByteStream.h"
#include "CTransport.h"

class CRelpTransport final : public CTransport {
public:
    CRelpTransport(CWaiter& waiter, std::unique_ptr<CByteStream> stream, std::size_t window);

    bool open(Clock::time_point limit, std::string& error) override;
    bool isOpen() const override { return m_stream->isOpen(); }
    int fd() const override { return m_stream->fd(); }
    std::uint64_t frame(std::string_view message, std::string& out) override;
    long write(const char* data, std::size_t size, std::string& error) override;
    std::size_t batchLimit() const override { return m_stream->chunkLimit(); }
    std::size_t window() const override { return m_window; }
    bool receive(std::string& error) override;
    std::uint64_t confirmed() override { return m_answered; }
    bool refusedRecord(std::uint64_t mark, std::string& answer) override;
    bool refused() const override { return m_refused || m_stream->refused(); }
    bool faulty() const override { return m_faulty; }
    bool reset() const override { return m_stream->wasReset(); }
    bool acknowledges() const override { return true; }
    bool answers() const override { return true; }
    void close(Clock::time_point limit) override;
    void abandon() override { m_stream->abandon(); }

private:
    // Appends one frame of ours to `out` and returns its transaction number.
    std::uint32_t appendFrame(const char* command, std::string_view data, std::string& out);
    // Writes `frame` (open, close) whole and reads until the relay answered it, at most until
    // `limit`; false with `error` set. The answer's data goes to `answer`.
    bool exchange(const std::string& frame, Clock::time_point limit, std::string& answer, std::string& error);
    // Takes the complete frames out of m_input; false with `error` set when one breaks the
    // protocol or ends the session.
    bool parse(std::string& error);
    bool takeAnswer(std::uint32_t txnr, std::string_view data, std::string& error);
    bool violation(const std::string& what, std::string& error);

    CWaiter& m_waiter;
    const std::unique_ptr<CByteStream> m_stream;
    const std::size_t m_window;
    std::uint32_t m_nextTxnr = 1;
    std::deque<std::uint32_t> m_awaited;  // the transactions not answered yet, oldest first
    std::uint64_t m_framed = 0;  // records framed on this session: the mark of the last one
    std::uint64_t m_answered = 0;  // records answered, in order
    std::deque<std::pair<std::uint64_t, std::string>> m_refusals;  // marks answered with an error
    std::string m_input;  // what the relay sent and was not parsed yet
    std::uint32_t m_controlTxnr = 0;  // an open or close not answered yet, else 0
    std::string m_controlAnswer;  // its answer, once it came
    bool m_refused = false;  // the relay refused the session
    bool m_faulty = false;  // the relay broke the protocol
    bool m_serverClosed = false;  // the relay ended the session
};
