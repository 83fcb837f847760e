// Plain TCP to the relay.
#pragma once

#include "CByteStream.h"

class CTcpStream final : public CByteStream {
public:
    CTcpStream(CWaiter& waiter, std::string host, int port)
        : CByteStream(waiter, std::move(host), port)
    {
    }
    ~CTcpStream() override { closeSocket(); }

    bool open(Clock::time_point limit, std::string& error) override { return connectTcp(limit, error); }
    bool awaitVerdict(Clock::time_point limit, bool answers, std::string& error) override;
    long write(const char* data, std::size_t size, std::string& error) override { return sendBytes(data, size, error); }
    long read(char* data, std::size_t size, std::string& error) override { return receiveBytes(data, size, error); }
    std::uint64_t acknowledged() override { return acknowledgedWireBytes(); }
    void close() override { closeSocket(); }
    void abandon() override { closeSocket(); }
};
