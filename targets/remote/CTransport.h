// What the sender thread sees of each way of carrying records to the relay (UDP, syslog over TCP
// or TLS, RELP): records framed into a batch that one write carries, and the relay's
// confirmations. A confirmation is a mark, given to each record when it is framed: the records up
// to the mark that confirmed() returns have reached the relay as far as the protocol can tell.
// Used by the sender thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "CWaiter.h"

class CTransport {
public:
    using Clock = CWaiter::Clock;

    virtual ~CTransport() = default;

    // Opens a connection, waiting at most until `limit`, and waits for the relay's verdict on it;
    // false with `error` set when it fails (refused() tells whether the relay refused it).
    virtual bool open(Clock::time_point limit, std::string& error) = 0;
    virtual bool isOpen() const = 0;
    // The socket, to wait for; -1 when closed.
    virtual int fd() const = 0;
    // True when the relay may speak or close the connection: the sender watches the socket for it.
    virtual bool listens() const { return true; }

    // Appends `message` as one frame to `out` and returns its mark.
    virtual std::uint64_t frame(std::string_view message, std::string& out) = 0;
    // Writes what the connection takes now of `data` (whole frames, at most batchLimit() bytes, or
    // the rest of an earlier batch): the number of bytes (maybe 0), or -1 with `error` set when
    // the connection failed.
    virtual long write(const char* data, std::size_t size, std::string& error) = 0;
    // The most bytes of frames one write carries; 0: one frame per write (datagrams).
    virtual std::size_t batchLimit() const = 0;
    // The most records that may wait for their confirmation at a time.
    virtual std::size_t window() const { return SIZE_MAX; }

    // Takes what the relay sent, without waiting: false with `error` set when the connection
    // ended or failed.
    virtual bool receive(std::string& error) = 0;
    // The mark up to which every record is confirmed.
    virtual std::uint64_t confirmed() = 0;
    // For a confirmed mark: true, with the relay's words in `answer`, when the relay refused that
    // record instead of taking it.
    virtual bool refusedRecord(std::uint64_t /*mark*/, std::string& /*answer*/) { return false; }
    // The connection ended because the relay refused it: nothing written into it was taken,
    // whatever TCP had acknowledged.
    virtual bool refused() const = 0;
    // The relay broke the protocol: the connection counts as a failed attempt.
    virtual bool faulty() const { return false; }
    // The connection ended with a reset: the relay may have dropped what its TCP had received.
    virtual bool reset() const { return false; }
    // True when the relay itself confirms records; false when only its TCP does, which cannot
    // tell whether the relay read them.
    virtual bool acknowledges() const { return false; }
    // True when a confirmation needs the relay to speak (the sender waits for the socket), false
    // when it is looked up (the sender looks again after a while).
    virtual bool answers() const { return false; }

    // Ends the connection, politely where the protocol says how, waiting at most until `limit`.
    virtual void close(Clock::time_point limit) = 0;
    // Lets go of the connection without a byte on the wire.
    virtual void abandon() = 0;
};
