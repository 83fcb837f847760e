// The remote target's sender: the record queue and the thread that delivers it (CDelivery). A
// log call copies its record into the queue and never waits for the network. Unloading hands the
// sender to its own thread, which drains the queue for at most drain-ms, reports what was not
// delivered and frees the sender, so that the configuration's lock is not held meanwhile; the
// process's exit waits for such drains. A fork child has no sender thread: its first record
// starts one of its own, and the parent's queued records are left to the parent.
#pragma once

#include <functional>
#include <memory>
#include <pthread.h>
#include <string>

#include "CDelivery.h"
#include "CRecordQueue.h"
#include "CSenderSettings.h"
#include "CTargetCounters.h"
#include "CTransport.h"
#include "CWaiter.h"
#include "Rfc5424.h"

class CSender {
public:
    using TransportMaker = std::function<std::unique_ptr<CTransport>(CWaiter&)>;

    // Starts the thread; throws std::runtime_error when it cannot, and std::bad_alloc when the
    // queue's memory cannot be had. `makeTransport` is kept: a fork child makes a transport of
    // its own.
    CSender(CSenderSettings settings, CRfc5424Options format, TransportMaker makeTransport);
    CSender(const CSender&) = delete;
    CSender& operator=(const CSender&) = delete;

    // Ends the sender without waiting: its thread drains the queue for at most drain-ms, counts
    // and reports what was not delivered, and frees it.
    static void retire(std::unique_ptr<CSender> sender);

    // Log callers (one at a time): queues a copy of the record.
    void submit(int pid, int depth, long long seconds, int microseconds, int severity, const std::string& appname,
                const std::string& thread, const std::string& component, const std::string& function,
                const std::string& message);

    // Only the sender's thread, or retire() where no thread runs, ends a sender.
    ~CSender();

    // What vexlorctl stats shows: they live as long as the sender, a drain after unload included.
    CTargetCounters& counters() { return m_counters; }

private:
    static void* threadMain(void* sender);
    static void forkChild();

    void startThread();
    void makeParts();
    void restartInChild();
    void leaveParentsStateAlone();

    CTargetCounters m_counters;
    const CSenderSettings m_settings;  // counts into m_counters
    const CRfc5424Options m_format;
    const TransportMaker m_makeTransport;
    CWaiter m_waiter;
    std::unique_ptr<CRecordQueue> m_queue;
    std::unique_ptr<CDelivery> m_delivery;  // the thread's
    pthread_t m_thread{};
    bool m_threadRunning = false;  // false in a fork child until its first record
    bool m_forkChild = false;  // set by the fork child handler
    CSender* m_nextSender = nullptr;  // the list of live senders, for fork handling
};
