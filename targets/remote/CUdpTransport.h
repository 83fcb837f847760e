// RFC 5426: one message per datagram. The formatter has already cut the message to the datagram
// size. Nothing tells the sender whether a datagram arrived.
#pragma once

#include "CTransport.h"

class CUdpTransport final : public CTransport {
public:
    CUdpTransport(CWaiter& waiter, std::string host, int port);
    ~CUdpTransport() override { closeFd(); }

    bool open(CWaiter::Clock::time_point limit, std::string& error) override;
    bool send(const std::string& message, std::string& error) override;
    bool peerClosed() override { return false; }
    int idleFd() const override { return -1; }  // nothing to learn from a datagram socket
    void close() override { closeFd(); }
    void abandon() override { closeFd(); }

private:
    const std::string m_host;
    const int m_port;
};
