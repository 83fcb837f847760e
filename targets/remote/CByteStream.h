// A connection to the relay that carries bytes: plain TCP or TLS over TCP. What the transports
// frame (syslog messages, RELP frames) goes through it. Used by the sender thread only; every wait
// goes through the sender's CWaiter, so the stop deadline bounds it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "CResolver.h"
#include "CWaiter.h"

class CByteStream {
public:
    using Clock = CWaiter::Clock;

    virtual ~CByteStream() = default;
    CByteStream(const CByteStream&) = delete;
    CByteStream& operator=(const CByteStream&) = delete;

    // Connects (TLS: and completes the handshake), waiting at most until `limit`; false with
    // `error` set when it fails.
    virtual bool open(Clock::time_point limit, std::string& error) = 0;
    // Right after open: waits (at most until `limit`) for a relay that closes or refuses the
    // connection at once, as one at its session limit, or one that does not accept the client's
    // certificate (TLS 1.3 sends that verdict after the handshake). Where the relay `answers` the
    // client's first message anyway (RELP), only a verdict certain to come is awaited (on a
    // certificate the relay asked for); otherwise a few round trips. False with `error` set when
    // the relay refused.
    virtual bool awaitVerdict(Clock::time_point limit, bool answers, std::string& error) = 0;
    // Writes as much of `data` as the connection takes now: the number of bytes (0 when it takes
    // nothing now; TLS: all or nothing, and the next call must offer the same bytes), or -1 with
    // `error` set when the connection failed.
    virtual long write(const char* data, std::size_t size, std::string& error) = 0;
    // Reads what the relay sent, without waiting: the number of bytes, 0 when there is nothing
    // now, or -1 with `error` set when the connection ended or failed.
    virtual long read(char* data, std::size_t size, std::string& error) = 0;
    // How many of the bytes that write() took the relay's TCP has acknowledged: received, not
    // necessarily read by the relay. Never decreases on one connection.
    virtual std::uint64_t acknowledged() = 0;
    // The most bytes one write() should be offered.
    virtual std::size_t chunkLimit() const { return 65536; }
    // Ends the connection, politely where the protocol says how, without waiting.
    virtual void close() = 0;
    // Lets go of the connection without a byte on the wire.
    virtual void abandon() = 0;

    bool isOpen() const { return m_fd >= 0; }
    int fd() const { return m_fd; }
    // The connection ended because the relay refused it (a TLS alert): nothing written into it
    // reached the relay's application.
    bool refused() const { return m_refused; }
    // The connection ended with a reset.
    bool wasReset() const { return m_reset; }

    // Writes to the non-blocking socket without raising SIGPIPE (a closed peer must not signal
    // the application): the number of bytes, or -1 with `error` set.
    long sendBytes(const char* data, std::size_t size, std::string& error);
    // Reads from the non-blocking socket: the number of bytes, 0 when nothing is there, or -1
    // with `error` set ("connection closed by the relay", "connection reset by the relay", ...).
    long receiveBytes(char* data, std::size_t size, std::string& error);

protected:
    CByteStream(CWaiter& waiter, std::string host, int port)
        : m_waiter(waiter)
        , m_host(std::move(host))
        , m_port(port)
    {
    }
    // Connects the TCP socket (m_fd); false with `error` set.
    bool connectTcp(Clock::time_point limit, std::string& error);
    // How long to wait for the relay's verdict: a few times the connect's round trip, within
    // bounds, and never past `limit`.
    Clock::time_point verdictLimit(Clock::time_point limit) const;
    // The peer's TCP acknowledgements of the `m_wireWritten` bytes written to the socket.
    std::uint64_t acknowledgedWireBytes();
    void closeSocket();

    CWaiter& m_waiter;
    const std::string m_host;
    const int m_port;
    CResolver m_resolver;
    int m_fd = -1;
    bool m_refused = false;
    bool m_reset = false;
    bool m_ended = false;  // a read or write found the connection ended
    Clock::duration m_connectTime{};
    std::uint64_t m_wireWritten = 0;  // bytes written to the socket on this connection
    std::uint64_t m_wireAcknowledged = 0;  // of these, acknowledged by the peer's TCP
};
