// The remote target's sender thread: takes records from the queue, formats them and sends them,
// (re)connecting with exponential backoff; reports each outage and each run of dropped records
// once when it starts and once when it ends; drains the queue for at most drain-ms at the end.
// The thread sleeps while the queue is empty. A fork child has no sender thread: its first record
// starts one of its own, and the parent's queued records are left to the parent.
#pragma once

#include <functional>
#include <memory>
#include <pthread.h>
#include <string>

#include "CRecordQueue.h"
#include "CTransport.h"
#include "CWaiter.h"
#include "Rfc5424.h"

struct CSenderSettings {
    std::string owner;  // "remote target <name>", the start of every diagnostic
    std::string destination;  // "tcp 10.0.0.1:514", for the operator
    std::size_t queueSize = 10000;
    int retryMs = 250;  // first wait after a failed attempt, doubled after each further one
    int retryMaxMs = 30000;  // longest wait between attempts
    int connectTimeoutMs = 5000;
    int drainMs = 2000;  // longest wait for the queue to drain at the end
};

class CSender {
public:
    using TransportMaker = std::function<std::unique_ptr<CTransport>(CWaiter&)>;

    // Starts the thread; throws std::runtime_error when it cannot. `makeTransport` is kept: a
    // fork child makes a transport of its own.
    CSender(CSenderSettings settings, CRfc5424Options format, TransportMaker makeTransport);
    // Drains for at most drain-ms, then counts and reports what was not sent.
    ~CSender();
    CSender(const CSender&) = delete;
    CSender& operator=(const CSender&) = delete;

    // Log callers (one at a time): queues a copy of the record; never waits for the network.
    void submit(int pid, int depth, long long seconds, int microseconds, int severity, const std::string& appname,
                const std::string& thread, const std::string& component, const std::string& function,
                const std::string& message);

private:
    static void* threadMain(void* sender);
    static void forkChild();

    void startThread();
    void restartInChild();
    void leaveParentsStateAlone();
    void run();
    void idle();
    bool reconnect();
    void attemptFailed(const std::string& error);
    void delivered();
    void noteDropped(unsigned long long dropped);
    void endDropRun();
    void finish(bool pending);

    const CSenderSettings m_settings;
    const CRfc5424Formatter m_formatter;
    const TransportMaker m_makeTransport;
    CWaiter m_waiter;
    std::unique_ptr<CRecordQueue> m_queue;
    std::unique_ptr<CTransport> m_transport;  // the sender thread's
    pthread_t m_thread{};
    bool m_threadRunning = false;  // false in a fork child until its first record
    bool m_forkChild = false;  // set by the fork child handler
    CSender* m_nextSender = nullptr;  // the list of live senders, for fork handling

    // The sender thread's state.
    unsigned m_failures = 0;  // failed attempts since the last delivered record
    bool m_sentOnConnection = false;  // the current connection delivered a record
    CWaiter::Clock::time_point m_nextAttempt{};
    unsigned long long m_droppedInRun = 0;  // dropped since the queue was last found empty
};
