// The sender's thread, its hand-over at unload, the wait for drains at exit, and fork handling.
#include "CSender.h"

#include <csignal>
#include <stdexcept>
#include <syslog.h>
#include <unistd.h>

#include "forkGeneration.h"
#include "startThread.h"

namespace {

using Clock = CWaiter::Clock;

// The live senders, for the fork child handler, and the count of retired senders still draining,
// for the wait at exit. Plain C types: they need no destructor, so they stay usable while the
// process exits. Every change of the list is a single pointer write, so a fork child can walk it
// whatever another thread was doing.
pthread_mutex_t sendersMutex = PTHREAD_MUTEX_INITIALIZER;
CSender* firstSender = nullptr;  // written under sendersMutex
int draining = 0;  // guarded by sendersMutex
pthread_cond_t drainEnded = PTHREAD_COND_INITIALIZER;
pthread_once_t forkHandlerOnce = PTHREAD_ONCE_INIT;

// Runs when the process exits (or this library leaves the process), after the library's
// instances handed their targets back: what they retired drains before the process ends. Each
// drain ends at its own deadline. The library is linked to stay loaded once it was loaded, so
// that a retired sender's thread may outlive the unload of its target.
__attribute__((destructor)) void waitForDrains()
{
    pthread_mutex_lock(&sendersMutex);
    while (draining > 0) {
        pthread_cond_wait(&drainEnded, &sendersMutex);
    }
    pthread_mutex_unlock(&sendersMutex);
}

}  // namespace

CSender::CSender(CSenderSettings settings, CRfc5424Options format, TransportMaker makeTransport)
    : m_counters("remote", settings.name, {"reconnects", "sent-again"})
    , m_settings([&] {
        settings.counters = &m_counters;
        return std::move(settings);
    }())
    , m_format(std::move(format))
    , m_makeTransport(std::move(makeTransport))
{
    makeParts();
    // Only a child handler: a prepare handler holding our locks across fork would meet the
    // library's, which holds the container's lock, in the opposite order.
    pthread_once(&forkHandlerOnce, [] { pthread_atfork(nullptr, nullptr, &forkChild); });
    startThread();
    if (!m_threadRunning) {
        throw std::runtime_error("cannot start the sender thread for " + m_settings.destination);
    }
    pthread_mutex_lock(&sendersMutex);
    m_nextSender = firstSender;
    firstSender = this;
    pthread_mutex_unlock(&sendersMutex);
}

CSender::~CSender()
{
    if (m_forkChild) {
        leaveParentsStateAlone();
    }
}

void CSender::retire(std::unique_ptr<CSender> sender)
{
    pthread_mutex_lock(&sendersMutex);
    for (CSender** link = &firstSender; *link != nullptr; link = &(*link)->m_nextSender) {
        if (*link == sender.get()) {
            *link = sender->m_nextSender;
            break;
        }
    }
    // A fork child that never logged has no thread: nothing of its own to drain.
    if (sender->m_threadRunning) {
        ++draining;
        pthread_detach(sender->m_thread);
        CSender* const owned = sender.release();  // from now on, its thread's
        // Under the lock: the thread may see the stop before the wake-up, but it deletes itself
        // (and closes the descriptor the wake-up writes to) only after taking this lock.
        owned->m_waiter.stopAt(Clock::now() + std::chrono::milliseconds(owned->m_settings.drainMs));
    }
    pthread_mutex_unlock(&sendersMutex);
}

void CSender::submit(int pid, int depth, long long seconds, int microseconds, int severity, const std::string& appname,
                     const std::string& thread, const std::string& component, const std::string& function,
                     const std::string& message)
{
    if (m_forkChild) {
        restartInChild();
    }
    m_queue->push(pid, depth, seconds, microseconds, severity, appname, thread, component, function, message);
}

void CSender::makeParts()
{
    m_queue = std::make_unique<CRecordQueue>(m_settings.queueRecords, m_settings.queueBytes, m_waiter);
    m_delivery = std::make_unique<CDelivery>(m_settings, m_format, *m_queue, m_waiter, m_makeTransport(m_waiter));
}

void CSender::startThread()
{
    // The application's signals are for its own threads; SIGPIPE never reaches ours either way.
    m_threadRunning = ::startThread(m_thread, "vexlor-remote", &CSender::threadMain, this) == 0;
}

void* CSender::threadMain(void* self)
{
    auto* sender = static_cast<CSender*>(self);
    // Delivers until retire() asked it to stop and the queue is drained or the drain-ms are up.
    sender->m_delivery->run();
    // retire() wakes the thread under this lock: once the lock is had, it is done with the sender.
    pthread_mutex_lock(&sendersMutex);
    pthread_mutex_unlock(&sendersMutex);
    delete sender;
    pthread_mutex_lock(&sendersMutex);
    --draining;
    pthread_cond_broadcast(&drainEnded);
    pthread_mutex_unlock(&sendersMutex);
    return nullptr;
}

void CSender::leaveParentsStateAlone()
{
    // The parent's thread may have been inside the queue or the connection at
    // the fork: their copies here are left untouched, not even freed. Only the socket is closed,
    // which ends nothing for the parent.
    m_forkChild = false;
    const int socket = m_delivery->socketFd();
    if (socket >= 0) {
        close(socket);
    }
    (void)m_delivery.release();
    (void)m_queue.release();
}

void CSender::restartInChild()
{
    leaveParentsStateAlone();
    m_waiter.renewAfterFork();
    makeParts();
    startThread();
    if (!m_threadRunning) {
        syslog(LOG_ERR, "%s: cannot start the sender thread in the forked process; its records stay unsent",
               m_settings.owner.c_str());
    }
}

void CSender::forkChild()
{
    // Another thread may have held the lock at the fork; the list itself is whole (see above).
    lockInForkChild(sendersMutex);
    // The parent's draining threads did not come along: nothing to wait for at this child's exit.
    pthread_cond_init(&drainEnded, nullptr);
    draining = 0;
    for (CSender* sender = firstSender; sender != nullptr; sender = sender->m_nextSender) {
        // The thread did not come along; its handle means nothing here.
        sender->m_threadRunning = false;
        sender->m_forkChild = true;
    }
    pthread_mutex_unlock(&sendersMutex);
}
