// Turns each SIGUSR1 into one re-read of the legacy level file on an ordinary thread. The
// handler itself only writes one byte to a pipe (async-signal-safe); a relay thread reads it and
// does the file and syslog work, which is not safe inside a handler.
#pragma once

#include <pthread.h>

class CLevelSignalRelay {
public:
    // Starts the relay and installs the SIGUSR1 handler, once per process.
    static void install();

    ~CLevelSignalRelay();
    CLevelSignalRelay(const CLevelSignalRelay&) = delete;
    CLevelSignalRelay& operator=(const CLevelSignalRelay&) = delete;

private:
    CLevelSignalRelay();
    void start();
    void restartInChild();
    static void onSignal(int signalNumber);
    static void onForkChild();
    static void* threadMain(void* relay);
    void run();

    int m_readFd = -1;
    int m_writeFd = -1;
    // A plain thread handle: a fork child must be able to forget the parent's thread unjoined.
    pthread_t m_thread{};
    bool m_threadRunning = false;
};
