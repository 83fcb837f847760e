// Syslog over a byte stream: RFC 6587 over TCP (each message framed by its length in octets, the
// default, or ended by a line feed, with line feeds inside the message written as "#012"), RFC
// 5425 over TLS (octet counting). The relay says nothing back: a record is confirmed when the
// relay's TCP acknowledged the last byte of its frame, which proves it arrived, not that the
// relay read it.
#pragma once

#include <memory>

#include "CByteStream.h"
#include "CTransport.h"

enum class CFraming { OCTET_COUNTING, LINE_FEED };

// Appends the framed message to `out`.
void appendFrame(CFraming framing, std::string_view message, std::string& out);

class CSyslogTransport final : public CTransport {
public:
    CSyslogTransport(std::unique_ptr<CByteStream> stream, CFraming framing)
        : m_stream(std::move(stream))
        , m_framing(framing)
    {
    }

    bool open(Clock::time_point limit, std::string& error) override;
    bool isOpen() const override { return m_stream->isOpen(); }
    int fd() const override { return m_stream->fd(); }
    std::uint64_t frame(std::string_view message, std::string& out) override;
    long write(const char* data, std::size_t size, std::string& error) override
    {
        return m_stream->write(data, size, error);
    }
    std::size_t batchLimit() const override { return m_stream->chunkLimit(); }
    bool receive(std::string& error) override;
    std::uint64_t confirmed() override { return m_stream->acknowledged(); }
    bool refused() const override { return m_stream->refused(); }
    bool reset() const override { return m_stream->wasReset(); }
    void close(Clock::time_point) override { m_stream->close(); }
    void abandon() override { m_stream->abandon(); }

private:
    const std::unique_ptr<CByteStream> m_stream;
    const CFraming m_framing;
    std::uint64_t m_framed = 0;  // bytes framed on this connection: the mark of the last frame
};
