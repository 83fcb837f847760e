// The RELP client: the session's open and close, our frames, and the relay's answers.
#include "CRelpTransport.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <poll.h>

namespace {

constexpr std::uint32_t TXNR_MAX = 999999999;
// No answer of a relay is longer: more bytes without a frame's end are not RELP.
constexpr std::size_t ANSWER_MAX = 1 << 20;
const char OFFERS[] = "relp_version=0\nrelp_software=vexlor\ncommands=syslog";

enum class EParse { OK, INCOMPLETE, BAD };

// A decimal number of 1 to 9 digits at text[at], as RELP's TXNR and DATALEN.
EParse number(std::string_view text, std::size_t& at, std::uint32_t& value)
{
    const std::size_t start = at;
    value = 0;
    while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0 && at - start < 9) {
        value = value * 10 + static_cast<std::uint32_t>(text[at++] - '0');
    }
    if (at == text.size()) {
        return EParse::INCOMPLETE;
    }
    return at > start && std::isdigit(static_cast<unsigned char>(text[at])) == 0 ? EParse::OK : EParse::BAD;
}

// HEADER = TXNR SP COMMAND SP DATALEN; `at` ends after DATALEN.
EParse header(std::string_view text, std::size_t& at, std::uint32_t& txnr, std::string_view& command,
              std::uint32_t& length)
{
    EParse result = number(text, at, txnr);
    if (result != EParse::OK) {
        return result;
    }
    if (text[at++] != ' ') {
        return EParse::BAD;
    }
    const std::size_t start = at;
    while (at < text.size() && std::isalpha(static_cast<unsigned char>(text[at])) != 0 && at - start < 32) {
        ++at;
    }
    if (at == text.size()) {
        return EParse::INCOMPLETE;
    }
    command = text.substr(start, at - start);
    if (command.empty() || text[at++] != ' ') {
        return EParse::BAD;
    }
    return number(text, at, length);
}

// What the relay said, as a diagnostic may quote it: the first line, at most 80 bytes, with
// other bytes than printable ASCII escaped.
std::string quote(std::string_view text)
{
    std::string quoted;
    for (std::size_t i = 0; i < text.size() && i < 80 && text[i] != '\n'; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= ' ' && c < 127 && c != '"' && c != '\\') {
            quoted += static_cast<char>(c);
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
            quoted += escaped;
        }
    }
    return quoted;
}

// The relay's answer to open offers "commands=" with a comma-separated list.
bool offersSyslog(std::string_view answer)
{
    const std::size_t at = answer.find("\ncommands=");
    if (at == std::string_view::npos) {
        return false;
    }
    std::string_view list = answer.substr(at + 10);
    list = list.substr(0, list.find('\n'));
    for (std::size_t start = 0; start <= list.size();) {
        const std::size_t comma = std::min(list.find(',', start), list.size());
        if (list.substr(start, comma - start) == "syslog") {
            return true;
        }
        start = comma + 1;
    }
    return false;
}

bool isSuccess(std::string_view answer)
{
    return answer.substr(0, 3) == "200" && (answer.size() == 3 || answer[3] == ' ' || answer[3] == '\n');
}

}  // namespace

CRelpTransport::CRelpTransport(CWaiter& waiter, std::unique_ptr<CByteStream> stream, std::size_t window)
    : m_waiter(waiter)
    , m_stream(std::move(stream))
    , m_window(window)
{
}

bool CRelpTransport::open(Clock::time_point limit, std::string& error)
{
    m_nextTxnr = 1;
    m_awaited.clear();
    m_framed = 0;
    m_answered = 0;
    m_refusals.clear();
    m_input.clear();
    m_refused = false;
    m_faulty = false;
    m_serverClosed = false;
    if (!m_stream->open(limit, error)) {
        return false;
    }
    if (!m_stream->awaitVerdict(limit, true, error)) {
        m_stream->abandon();
        return false;
    }
    std::string frame;
    m_controlTxnr = appendFrame("open", OFFERS, frame);
    std::string answer;
    if (exchange(frame, limit, answer, error)) {
        if (!isSuccess(answer)) {
            m_refused = true;
            error = "the relay refused the session: \"" + quote(answer) + "\"";
        } else if (!offersSyslog(answer)) {
            m_refused = true;
            error =
                "the relay does not offer the syslog command: \"" + quote(answer.substr(answer.find('\n') + 1)) + "\"";
        } else {
            return true;
        }
    }
    m_stream->abandon();
    return false;
}

bool CRelpTransport::exchange(const std::string& frame, Clock::time_point limit, std::string& answer,
                              std::string& error)
{
    std::size_t written = 0;
    for (;;) {
        if (written < frame.size()) {
            const long sent = m_stream->write(frame.data() + written, frame.size() - written, error);
            if (sent < 0) {
                return false;
            }
            written += static_cast<std::size_t>(sent);
        }
        // A relay may answer and close at once (one that refuses the session): the answer counts.
        const bool open = receive(error);
        if (m_controlTxnr == 0) {
            answer = m_controlAnswer;
            return true;
        }
        if (!open) {
            return false;
        }
        if (Clock::now() >= limit || m_waiter.expired()) {
            error = "no answer to \"" + quote(frame.substr(frame.find(' ') + 1, 5)) + "\" in time";
            return false;
        }
        m_waiter.wait(m_stream->fd(), written < frame.size() ? POLLIN | POLLOUT : POLLIN, limit);
    }
}

std::uint32_t CRelpTransport::appendFrame(const char* command, std::string_view data, std::string& out)
{
    const std::uint32_t txnr = m_nextTxnr;
    m_nextTxnr = txnr == TXNR_MAX ? 1 : txnr + 1;
    out += std::to_string(txnr);
    out += ' ';
    out += command;
    out += ' ';
    out += std::to_string(data.size());
    if (!data.empty()) {
        out += ' ';
        out += data;
    }
    out += '\n';
    m_awaited.push_back(txnr);
    return txnr;
}

long CRelpTransport::write(const char* data, std::size_t size, std::string& error)
{
    const long written = m_stream->write(data, size, error);
    if (written < 0) {
        // A relay that ends the session says so before it closes: that is the better reason.
        std::string said;
        receive(said);
        if (m_serverClosed) {
            error = said;
        }
    }
    return written;
}

std::uint64_t CRelpTransport::frame(std::string_view message, std::string& out)
{
    appendFrame("syslog", message, out);
    return ++m_framed;
}

bool CRelpTransport::receive(std::string& error)
{
    char buffer[16384];
    for (;;) {
        const long got = m_stream->read(buffer, sizeof buffer, error);
        if (got < 0) {
            // Answers that came before the end count; a serverclose names the end better.
            std::string said;
            if (!parse(said)) {
                error = said;
            }
            return false;
        }
        if (got == 0) {
            return parse(error);
        }
        m_input.append(buffer, static_cast<std::size_t>(got));
        if (!parse(error)) {
            return false;
        }
    }
}

bool CRelpTransport::parse(std::string& error)
{
    std::size_t at = 0;
    bool ok = true;
    while (ok && at < m_input.size()) {
        const std::string_view rest(m_input.data() + at, m_input.size() - at);
        std::size_t end = 0;
        std::uint32_t txnr = 0;
        std::uint32_t length = 0;
        std::string_view command;
        const EParse parsed = header(rest, end, txnr, command, length);
        const std::size_t trailer = length == 0 ? end : end + 1 + length;  // where LF is due
        if (parsed == EParse::INCOMPLETE || (parsed == EParse::OK && rest.size() <= trailer)) {
            if (length > ANSWER_MAX) {
                ok = violation("a frame longer than any answer", error);
            }
            break;
        }
        if (parsed == EParse::BAD || (length > 0 && rest[end] != ' ') || rest[trailer] != '\n') {
            ok = violation("a malformed frame \"" + quote(rest) + "\"", error);
            break;
        }
        const std::string_view data = length == 0 ? std::string_view() : rest.substr(end + 1, length);
        at += trailer + 1;
        if (command == "rsp") {
            ok = takeAnswer(txnr, data, error);
        } else if (command == "serverclose") {
            m_serverClosed = true;
            error = "the relay ended the session (serverclose)";
            ok = false;
        } else {
            ok = violation("the command \"" + quote(command) + "\", which a relay does not send", error);
        }
    }
    m_input.erase(0, at);
    return ok;
}

bool CRelpTransport::takeAnswer(std::uint32_t txnr, std::string_view data, std::string& error)
{
    if (m_awaited.empty() || txnr != m_awaited.front()) {
        return violation("an answer to transaction " + std::to_string(txnr) +
                             (m_awaited.empty()
                                  ? ", which it was not asked"
                                  : " where the one to " + std::to_string(m_awaited.front()) + " was due"),
                         error);
    }
    m_awaited.pop_front();
    if (txnr == m_controlTxnr) {
        m_controlAnswer.assign(data.data(), data.size());
        m_controlTxnr = 0;
        return true;
    }
    ++m_answered;
    if (!isSuccess(data)) {
        m_refusals.emplace_back(m_answered, quote(data));
    }
    return true;
}

bool CRelpTransport::violation(const std::string& what, std::string& error)
{
    m_faulty = true;
    error = "the relay broke the protocol with " + what;
    return false;
}

bool CRelpTransport::refusedRecord(std::uint64_t mark, std::string& answer)
{
    if (m_refusals.empty() || m_refusals.front().first != mark) {
        return false;
    }
    answer = std::move(m_refusals.front().second);
    m_refusals.pop_front();
    return true;
}

void CRelpTransport::close(Clock::time_point limit)
{
    if (!isOpen()) {
        return;
    }
    if (m_awaited.empty() && !m_faulty) {
        // The relay answers close, then ends the session itself; only its answer is awaited.
        std::string frame;
        m_controlTxnr = appendFrame("close", "", frame);
        std::string answer;
        std::string error;
        exchange(frame, limit, answer, error);
        m_controlTxnr = 0;
    }
    m_stream->close();
}
