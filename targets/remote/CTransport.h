// The base of each way of carrying syslog messages to the receiver (UDP, TCP, TLS). Used by the sender thread
// only; every wait goes through the sender's CWaiter, so the stop deadline bounds it.
#pragma once

#include <string>

#include "CWaiter.h"

class CTransport {
public:
    virtual ~CTransport() = default;
    // Opens a connection, waiting at most until `limit`; false with `error` set when it fails.
    virtual bool open(CWaiter::Clock::time_point limit, std::string& error) = 0;
    bool isOpen() const { return m_fd >= 0; }
    // Sends one message, framed as the transport requires; false with `error` set when the
    // connection failed (the caller closes it and sends the message again on the next one).
    virtual bool send(const std::string& message, std::string& error) = 0;
    // True when the receiver closed the connection or it failed; never waits.
    virtual bool peerClosed() = 0;
    // Ends the connection, politely where the protocol says how.
    virtual void close() = 0;
    // Lets go of the connection without a byte on the wire.
    virtual void abandon() = 0;
    // The socket, for a fork child that must close its copy without touching anything else.
    int socketFd() const { return m_fd; }
    // The descriptor to watch while idle, for the receiver closing the connection; -1 for none.
    virtual int idleFd() const { return m_fd; }

protected:
    explicit CTransport(CWaiter& waiter)
        : m_waiter(waiter)
    {
    }
    // Writes all of `data` to the non-blocking socket with MSG_NOSIGNAL (a closed peer must not
    // raise SIGPIPE in the application); false with `error` set on failure or at the stop deadline.
    bool sendAll(const char* data, std::size_t size, std::string& error);
    void closeFd();

    CWaiter& m_waiter;
    int m_fd = -1;
};
