// A relay written in a test, for the faults no real relay shows on demand: listens on a free port
// of 127.0.0.1 and hands each accepted connection, one at a time, to `serve` on its own thread.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

class CFakeRelay {
public:
    // `serve` owns the descriptor (and closes it); it should return soon once stopping() is true.
    // `receiveBuffer` > 0 sets the accepted sockets' SO_RCVBUF.
    using CServe = std::function<void(const CFakeRelay& relay, int fd)>;
    explicit CFakeRelay(CServe serve, int receiveBuffer = 0);
    ~CFakeRelay();  // stops accepting and waits for `serve`
    CFakeRelay(const CFakeRelay&) = delete;
    CFakeRelay& operator=(const CFakeRelay&) = delete;

    int port() const { return m_port; }
    int connections() const { return m_connections.load(); }
    bool stopping() const { return m_stopping.load(); }
    // The next line from `fd` without its LF (`pending` keeps what was read beyond it); false
    // when the peer closed or the relay stops.
    bool readLine(int fd, std::string& pending, std::string& line) const;

private:
    CServe m_serve;
    int m_listener = -1;
    int m_port = 0;
    std::atomic<int> m_connections{0};
    std::atomic<bool> m_stopping{false};
    std::thread m_thread;
};
