// Syslog framing over a stream, confirmed by TCP's acknowledgements.
#include "CSyslogTransport.h"

void appendFrame(CFraming framing, std::string_view message, std::string& out)
{
    if (framing == CFraming::OCTET_COUNTING) {
        out += std::to_string(message.size());
        out += ' ';
        out += message;
        return;
    }
    std::size_t run = 0;
    for (std::size_t i = 0; i < message.size(); ++i) {
        if (message[i] == '\n') {
            out.append(message.data() + run, i - run);
            out += "#012";
            run = i + 1;
        }
    }
    out.append(message.data() + run, message.size() - run);
    out += '\n';
}

bool CSyslogTransport::open(Clock::time_point limit, std::string& error)
{
    m_framed = 0;
    if (m_stream->open(limit, error) && m_stream->awaitVerdict(limit, false, error)) {
        return true;
    }
    m_stream->abandon();
    return false;
}

std::uint64_t CSyslogTransport::frame(std::string_view message, std::string& out)
{
    const std::size_t before = out.size();
    appendFrame(m_framing, message, out);
    m_framed += out.size() - before;
    return m_framed;
}

bool CSyslogTransport::receive(std::string& error)
{
    // A syslog relay sends nothing but, under TLS, session tickets and alerts: read and drop.
    char ignored[512];
    long got;
    while ((got = m_stream->read(ignored, sizeof ignored, error)) > 0) {
    }
    return got == 0;
}
