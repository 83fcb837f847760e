// SIGUSR1 relay: self-pipe written by the handler, read by a thread that re-reads the level file.
#include "core/CLevelSignalRelay.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include "core/LegacyLevel.h"
#include "base/diag.h"
#include "base/retryOnEintr.h"

namespace {

// The handler's only state; -1 while no relay runs, and then signals are dropped.
std::atomic<int> signalWriteFd{-1};

// The running relay, for the fork child handler.
CLevelSignalRelay* runningRelay = nullptr;

}  // namespace

void CLevelSignalRelay::install()
{
    static CLevelSignalRelay relay;
}

CLevelSignalRelay::CLevelSignalRelay()
{
    start();
    runningRelay = this;
    // A fork child has no relay thread, and the pipe it inherits is read by the parent's: its
    // signals would change the parent's mask. The child gets a relay of its own.
    pthread_atfork(nullptr, nullptr, &CLevelSignalRelay::onForkChild);
    // Installed in every case: the default action of SIGUSR1 would end the process.
    signal(SIGUSR1, &CLevelSignalRelay::onSignal);
}

CLevelSignalRelay::~CLevelSignalRelay()
{
    // The handler's code goes away with the library: stop taking the signal first.
    signal(SIGUSR1, SIG_IGN);
    signalWriteFd.store(-1);
    runningRelay = nullptr;
    if (m_writeFd != -1) {
        close(m_writeFd);  // the relay reads end-of-file and ends
    }
    if (m_threadRunning) {
        pthread_join(m_thread, nullptr);
    }
    if (m_readFd != -1) {
        close(m_readFd);
    }
}

void CLevelSignalRelay::start()
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        vx::diag(LOG_ERR, "unable to create the SIGUSR1 pipe - errno=%s", vx::errnoText(errno));
        return;
    }
    m_readFd = fds[0];
    m_writeFd = fds[1];
    // A full pipe must never block the handler.
    fcntl(m_writeFd, F_SETFL, O_NONBLOCK);
    const int rc = pthread_create(&m_thread, nullptr, &CLevelSignalRelay::threadMain, this);
    if (rc != 0) {
        vx::diag(LOG_ERR, "unable to start the SIGUSR1 thread - errno=%s", vx::errnoText(rc));
        return;
    }
    m_threadRunning = true;
    signalWriteFd.store(m_writeFd);
}

void CLevelSignalRelay::onForkChild()
{
    if (runningRelay != nullptr) {
        runningRelay->restartInChild();
    }
}

void CLevelSignalRelay::restartInChild()
{
    // The parent's thread does not exist here: forget it without joining. Closing our copies
    // of the pipe leaves the parent's relay untouched.
    signalWriteFd.store(-1);
    m_threadRunning = false;
    if (m_readFd != -1) {
        close(m_readFd);
        m_readFd = -1;
    }
    if (m_writeFd != -1) {
        close(m_writeFd);
        m_writeFd = -1;
    }
    start();
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

void* CLevelSignalRelay::threadMain(void* relay)
{
    static_cast<CLevelSignalRelay*>(relay)->run();
    return nullptr;
}

void CLevelSignalRelay::run()
{
    char byte = 0;
    // One byte per delivered signal: one re-read and one mask update each.
    while (vx::retryOnEintr([&] { return read(m_readFd, &byte, 1); }) == 1) {
        vx::onLevelSignal();
    }
}
