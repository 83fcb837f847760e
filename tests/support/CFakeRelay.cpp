// See CFakeRelay.h.
#include "CFakeRelay.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

CFakeRelay::CFakeRelay(std::function<void(int fd)> serve, int receiveBuffer)
    : m_serve(std::move(serve))
{
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer > 0) {
        // Set before listen, so that the window the connections offer follows it.
        setsockopt(m_listener, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(m_listener, 16);
    socklen_t length = sizeof address;
    getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { acceptLoop(); });
}

CFakeRelay::~CFakeRelay()
{
    m_stopping = true;
    shutdown(m_listener, SHUT_RDWR);  // ends the accept
    m_thread.join();
    close(m_listener);
}

void CFakeRelay::acceptLoop()
{
    while (!m_stopping) {
        const int fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            continue;  // the shutdown at the end, or a signal
        }
        ++m_connections;
        m_serve(fd);
    }
}

bool CFakeRelay::readable(int fd, int ms) const
{
    for (int waited = 0; waited < ms && !m_stopping; waited += 10) {
        pollfd watched{fd, POLLIN, 0};
        if (poll(&watched, 1, 10) > 0) {
            return true;
        }
    }
    return false;
}

bool CFakeRelay::readFrames(int fd, std::string& pending, std::vector<std::string>& messages, std::size_t count) const
{
    while (messages.size() < count && !m_stopping) {
        takeFrames(pending, messages);
        if (messages.size() >= count || !readable(fd, 100)) {
            continue;
        }
        char buffer[4096];
        const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0) {
            return false;
        }
        pending.append(buffer, static_cast<std::size_t>(got));
    }
    return true;
}

void takeFrames(std::string& buffer, std::vector<std::string>& messages)
{
    for (;;) {
        const std::size_t space = buffer.find(' ');
        if (space == std::string::npos) {
            return;
        }
        const std::size_t length = std::strtoul(buffer.c_str(), nullptr, 10);
        if (buffer.size() < space + 1 + length) {
            return;
        }
        messages.push_back(buffer.substr(space + 1, length));
        buffer.erase(0, space + 1 + length);
    }
}
