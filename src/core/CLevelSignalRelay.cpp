// SIGUSR1 relay (see CLevelSignalRelay.h).
#include "core/CLevelSignalRelay.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <syslog.h>
#include <unistd.h>

#include "base/diag.h"
#include "core/legacyLevel.h"

namespace {

// The handler's only state: the relay while it runs, else null and signals are dropped.
std::atomic<CLevelSignalRelay*> runningRelay{nullptr};

}  // namespace

void CLevelSignalRelay::install() { static CLevelSignalRelay relay; }

CLevelSignalRelay::CLevelSignalRelay()
{
    begin();
    // Installed in every case: the default action of SIGUSR1 would end the process.
    signal(SIGUSR1, &CLevelSignalRelay::onSignal);
}

CLevelSignalRelay::~CLevelSignalRelay()
{
    // The handler's code goes away with the library: stop taking the signal first.
    signal(SIGUSR1, SIG_IGN);
    runningRelay.store(nullptr);
    finish(false);  // the relay reads end-of-file and ends
}

void CLevelSignalRelay::begin()
{
    runningRelay.store(nullptr);
    if (openPipe(true) != 0) {
        vx::diag(LOG_ERR, "unable to create the SIGUSR1 pipe - errno=%s", vx::errnoText(errno));
        return;
    }
    const int rc = start("vexlor-signal");
    if (rc != 0) {
        vx::diag(LOG_ERR, "unable to start the SIGUSR1 thread - errno=%s", vx::errnoText(rc));
        return;
    }
    runningRelay.store(this);
}

void CLevelSignalRelay::onSignal(int /*signalNumber*/)
{
    const int savedErrno = errno;
    if (CLevelSignalRelay* relay = runningRelay.load()) {
        const char byte = 1;
        relay->send(&byte, 1);  // a full pipe drops the signal rather than blocking the handler
    }
    errno = savedErrno;
}

void CLevelSignalRelay::run()
{
    char byte = 0;
    // One byte per delivered signal: one re-read and one mask update each.
    while (receive(&byte, 1)) {
        vx::onLevelSignal();
    }
}
