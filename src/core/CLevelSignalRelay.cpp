// SIGUSR1 relay: self-pipe written by the handler, read by a thread that re-reads the level file.
#include "core/CLevelSignalRelay.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <syslog.h>
#include <system_error>
#include <unistd.h>

#include "core/LegacyLevel.h"
#include "core/diag.h"
#include "core/retryOnEintr.h"

namespace {

// The handler's only state; -1 while no relay runs, and then signals are dropped.
std::atomic<int> signalWriteFd{-1};

}  // namespace

void CLevelSignalRelay::install()
{
    static CLevelSignalRelay relay;
}

CLevelSignalRelay::CLevelSignalRelay()
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        vx::diag(LOG_ERR, "unable to create the SIGUSR1 pipe - errno=%s", vx::errnoText(errno));
    } else {
        m_readFd = fds[0];
        m_writeFd = fds[1];
        // A full pipe (nobody reading, as in a forked child) must never block the handler.
        fcntl(m_writeFd, F_SETFL, O_NONBLOCK);
        try {
            m_thread = std::thread(&CLevelSignalRelay::run, this);
            signalWriteFd.store(m_writeFd);
        } catch (const std::system_error& e) {
            vx::diag(LOG_ERR, "unable to start the SIGUSR1 thread: %s", e.what());
        }
    }
    // Installed in every case: the default action of SIGUSR1 would end the process.
    signal(SIGUSR1, &CLevelSignalRelay::onSignal);
}

CLevelSignalRelay::~CLevelSignalRelay()
{
    // The handler's code goes away with the library: stop taking the signal first.
    signal(SIGUSR1, SIG_IGN);
    signalWriteFd.store(-1);
    if (m_writeFd != -1) {
        close(m_writeFd);  // the relay reads end-of-file and ends
    }
    if (m_thread.joinable()) {
        m_thread.join();
    }
    if (m_readFd != -1) {
        close(m_readFd);
    }
}

void CLevelSignalRelay::onSignal(int /*signalNumber*/)
{
    const int savedErrno = errno;
    const int fd = signalWriteFd.load();
    if (fd != -1) {
        const char byte = 1;
        (void)!write(fd, &byte, 1);
    }
    errno = savedErrno;
}

void CLevelSignalRelay::run()
{
    char byte = 0;
    // One byte per delivered signal: one re-read and one mask update each.
    while (vx::retryOnEintr([&] { return read(m_readFd, &byte, 1); }) == 1) {
        vx::onLevelSignal();
    }
}
