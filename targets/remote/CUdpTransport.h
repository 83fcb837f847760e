// RFC 5426: one message per datagram. The formatter has already cut the message to the datagram
// size. Nothing tells the sender whether a datagram arrived: a record is confirmed when it left.
#pragma once

#include "CResolver.h"
#include "CTransport.h"

class CUdpTransport final : public CTransport {
public:
    CUdpTransport(CWaiter& waiter, std::string host, int port);
    ~CUdpTransport() override { abandon(); }

    bool open(Clock::time_point limit, std::string& error) override;
    bool isOpen() const override { return m_fd >= 0; }
    int fd() const override { return m_fd; }
    bool listens() const override { return false; }  // nothing to learn from a datagram socket
    std::uint64_t frame(std::string_view message, std::string& out) override;
    long write(const char* data, std::size_t size, std::string& error) override;
    std::size_t batchLimit() const override { return 0; }
    bool receive(std::string&) override { return true; }
    std::uint64_t confirmed() override { return m_sent; }
    bool refused() const override { return false; }
    void close(Clock::time_point) override { abandon(); }
    void abandon() override;

private:
    CWaiter& m_waiter;
    const std::string m_host;
    const int m_port;
    CResolver m_resolver;
    int m_fd = -1;
    std::uint64_t m_framed = 0;  // datagrams framed: the mark of the last one
    std::uint64_t m_sent = 0;  // datagrams sent
};
