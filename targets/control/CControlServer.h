// The control socket of one process and the thread that answers on it (see controlProtocol.h).
#pragma once

#include <pthread.h>

class CControlServer {
public:
    // Binds the socket and starts the thread; throws std::runtime_error saying why it cannot.
    CControlServer();
    // Stops the thread and closes the socket. Safe with the library's lock held, at process
    // exit, and in a fork child (which has no such thread).
    ~CControlServer();
    CControlServer(const CControlServer&) = delete;
    CControlServer& operator=(const CControlServer&) = delete;

    struct CState;  // shared by this object and the thread

private:
    CState* m_state;
    pthread_t m_thread;
};
