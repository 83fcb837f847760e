// The sender thread and its fork handling.
#include "CSender.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <syslog.h>
#include <unistd.h>

#include "startThread.h"

namespace {

using Clock = CWaiter::Clock;

// The live senders, for the fork child handler. Plain C types: they need no destructor, so they
// stay usable while the process exits and destroys targets after this library's own statics.
// Every change of the list is a single pointer write, so a fork child can walk it whatever
// another thread was doing.
pthread_mutex_t sendersMutex = PTHREAD_MUTEX_INITIALIZER;
CSender* firstSender = nullptr;  // written under sendersMutex
pthread_once_t forkHandlerOnce = PTHREAD_ONCE_INIT;

}  // namespace

CSender::CSender(CSenderSettings settings, CRfc5424Options format, TransportMaker makeTransport)
    : m_settings(std::move(settings))
    , m_formatter(std::move(format))
    , m_makeTransport(std::move(makeTransport))
    , m_queue(std::make_unique<CRecordQueue>(m_settings.queueSize, m_waiter))
    , m_transport(m_makeTransport(m_waiter))
{
    // Only a child handler: a prepare handler holding our locks across fork would meet the
    // library's, which holds the container's lock, in the opposite order. The handler goes away
    // with this library when it is unloaded (the C library forgets it).
    pthread_once(&forkHandlerOnce, [] { pthread_atfork(nullptr, nullptr, &forkChild); });
    startThread();
    if (!m_threadRunning) {
        throw std::runtime_error(m_settings.owner + ": cannot start the sender thread");
    }
    pthread_mutex_lock(&sendersMutex);
    m_nextSender = firstSender;
    firstSender = this;
    pthread_mutex_unlock(&sendersMutex);
}

CSender::~CSender()
{
    pthread_mutex_lock(&sendersMutex);
    for (CSender** link = &firstSender; *link != nullptr; link = &(*link)->m_nextSender) {
        if (*link == this) {
            *link = m_nextSender;
            break;
        }
    }
    pthread_mutex_unlock(&sendersMutex);
    if (m_threadRunning) {
        m_waiter.stopAt(Clock::now() + std::chrono::milliseconds(m_settings.drainMs));
        pthread_join(m_thread, nullptr);
    } else if (m_forkChild) {
        leaveParentsStateAlone();
    }
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

void CSender::startThread()
{
    // The application's signals are for its own threads; SIGPIPE never reaches ours either way.
    m_threadRunning = ::startThread(m_thread, "vexlor-remote", &CSender::threadMain, this) == 0;
}

void CSender::leaveParentsStateAlone()
{
    // The parent's thread may have been inside the queue (holding its lock) or the connection at
    // the fork: their copies here are left untouched, not even freed. Only the socket is closed,
    // which ends nothing for the parent.
    m_forkChild = false;
    const int socket = m_transport->socketFd();
    if (socket >= 0) {
        close(socket);
    }
    (void)m_transport.release();
    (void)m_queue.release();
}

void CSender::restartInChild()
{
    leaveParentsStateAlone();
    m_queue = std::make_unique<CRecordQueue>(m_settings.queueSize, m_waiter);
    m_transport = m_makeTransport(m_waiter);
    m_waiter.renewAfterFork();
    m_failures = 0;
    m_sentOnConnection = false;
    m_droppedInRun = 0;
    startThread();
    if (!m_threadRunning) {
        syslog(LOG_ERR, "%s: cannot start the sender thread in the forked process; its records stay unsent",
               m_settings.owner.c_str());
    }
}

void* CSender::threadMain(void* sender)
{
    static_cast<CSender*>(sender)->run();
    return nullptr;
}

void CSender::run()
{
    CQueuedRecord record;
    std::string message;
    bool pending = false;  // `message` is formatted and not yet delivered
    for (;;) {
        if (!pending) {
            unsigned long long dropped = 0;
            const bool popped = m_queue->pop(record, dropped);
            noteDropped(dropped);
            if (!popped) {
                endDropRun();
                if (m_waiter.stopping()) {
                    break;
                }
                idle();
                continue;
            }
            m_formatter.format(record, message);
            pending = true;
        }
        if (m_transport->isOpen() && m_transport->peerClosed()) {
            m_transport->close();
        }
        if (!m_transport->isOpen() && !reconnect()) {
            if (m_waiter.expired()) {
                break;
            }
            continue;
        }
        std::string error;
        if (m_transport->send(message, error)) {
            pending = false;
            delivered();
            continue;
        }
        m_transport->close();
        // A connection that delivered before is simply opened again; one that never did counts as
        // a failed attempt, so that a receiver that refuses every message is not hammered.
        if (!m_sentOnConnection) {
            attemptFailed(error);
        }
        if (m_waiter.expired()) {
            break;
        }
    }
    finish(pending);
}

void CSender::idle()
{
    // No timeout: the thread sleeps until a record arrives, the stop request, or the receiver
    // closing the connection.
    const short events = m_waiter.wait(m_transport->idleFd(), POLLIN | POLLRDHUP, Clock::time_point::max());
    if (events != 0 && m_transport->peerClosed()) {
        m_transport->close();
    }
}

bool CSender::reconnect()
{
    while (m_failures > 0 && Clock::now() < m_nextAttempt) {
        m_waiter.sleep(m_nextAttempt);
        noteDropped(m_queue->takeDropped());
        if (m_waiter.expired()) {
            return false;
        }
    }
    std::string error;
    m_sentOnConnection = false;
    if (m_transport->open(Clock::now() + std::chrono::milliseconds(m_settings.connectTimeoutMs), error)) {
        return true;
    }
    attemptFailed(error);
    return false;
}

void CSender::attemptFailed(const std::string& error)
{
    if (m_failures++ == 0) {
        syslog(LOG_ERR,
               "%s: cannot deliver to %s - %s; records wait in the queue (%zu at most) and delivery is retried",
               m_settings.owner.c_str(), m_settings.destination.c_str(), error.c_str(), m_settings.queueSize);
    }
    const long long delay = std::min<long long>(
        static_cast<long long>(m_settings.retryMs) << std::min(m_failures - 1, 20u), m_settings.retryMaxMs);
    m_nextAttempt = Clock::now() + std::chrono::milliseconds(delay);
}

void CSender::delivered()
{
    m_sentOnConnection = true;
    if (m_failures > 0) {
        syslog(LOG_NOTICE, "%s: delivering to %s again after %u failed attempts", m_settings.owner.c_str(),
               m_settings.destination.c_str(), m_failures);
        m_failures = 0;
    }
}

void CSender::noteDropped(unsigned long long dropped)
{
    if (dropped == 0) {
        return;
    }
    if (m_droppedInRun == 0) {
        syslog(LOG_WARNING, "%s: queue full (%zu records): dropping new records until %s takes them",
               m_settings.owner.c_str(), m_settings.queueSize, m_settings.destination.c_str());
    }
    m_droppedInRun += dropped;
}

void CSender::endDropRun()
{
    if (m_droppedInRun > 0) {
        syslog(LOG_WARNING, "%s: %llu records dropped while the queue was full", m_settings.owner.c_str(),
               m_droppedInRun);
        m_droppedInRun = 0;
    }
}

void CSender::finish(bool pending)
{
    noteDropped(m_queue->takeDropped());
    endDropRun();
    const std::size_t unsent = m_queue->size() + (pending ? 1 : 0);
    if (unsent > 0) {
        syslog(LOG_ERR, "%s: %zu records dropped at the end: %s did not take them within drain-ms=%d",
               m_settings.owner.c_str(), unsent, m_settings.destination.c_str(), m_settings.drainMs);
    }
    m_transport->close();
}

void CSender::forkChild()
{
    // Another thread may have held the lock at the fork; the list itself is whole (see above).
    pthread_mutex_init(&sendersMutex, nullptr);
    for (CSender* sender = firstSender; sender != nullptr; sender = sender->m_nextSender) {
        // The thread did not come along; its handle means nothing here.
        sender->m_threadRunning = false;
        sender->m_forkChild = true;
    }
}
