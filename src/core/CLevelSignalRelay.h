// Turns each SIGUSR1 into one re-read of the legacy level file on an ordinary thread. The
// handler itself only writes one byte to a pipe (async-signal-safe); the relay thread reads it
// and does the file and syslog work, which is not safe inside a handler.
#pragma once

#include "base/CPipeThread.h"

class CLevelSignalRelay final : public CPipeThread {
public:
    // Starts the relay and installs the SIGUSR1 handler, once per process.
    static void install();

    ~CLevelSignalRelay();

private:
    CLevelSignalRelay();
    void begin();
    static void onSignal(int signalNumber);
    void run() override;
    // A fork child's signals must change its own mask, not the parent's: it gets a relay of its own.
    void afterForkInChild() override { begin(); }
};
