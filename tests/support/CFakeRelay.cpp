// See CFakeRelay.h.
#include "CFakeRelay.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

CFakeRelay::CFakeRelay(CServe serve, int receiveBuffer)
    : m_serve(std::move(serve))
{
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer > 0) {
        // Set before listen, so that the window the connections offer follows it.
        setsockopt(m_listener, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(m_listener, 16);
    socklen_t length = sizeof address;
    getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] {
        while (!m_stopping) {
            const int fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0) {  // else the shutdown at the end
                ++m_connections;
                m_serve(*this, fd);
            }
        }
    });
}

CFakeRelay::~CFakeRelay()
{
    m_stopping = true;
    shutdown(m_listener, SHUT_RDWR);  // ends the accept
    m_thread.join();
    close(m_listener);
}

bool CFakeRelay::readLine(int fd, std::string& pending, std::string& line) const
{
    std::size_t end;
    while ((end = pending.find('\n')) == std::string::npos) {
        pollfd watched{fd, POLLIN, 0};
        if (m_stopping) {
            return false;
        }
        if (poll(&watched, 1, 100) <= 0) {
            continue;
        }
        char buffer[4096];
        const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0) {
            return false;
        }
        pending.append(buffer, static_cast<std::size_t>(got));
    }
    line = pending.substr(0, end);
    pending.erase(0, end + 1);
    return true;
}
