// A worker thread that sleeps until bytes arrive on its own pipe (written by other threads or by
// a signal handler), ended through that pipe and joined. The one mechanism behind the
// configuration watcher and the SIGUSR1 relay, fork handling included: in a fork child the
// parent's thread does not exist, so the object forgets it unjoined and closes its copies of the
// descriptors (the parent's thread goes on using the originals); a subclass may start anew there.
#pragma once

#include <cstddef>
#include <pthread.h>

#include "base/CFileDescriptor.h"
#include "base/forkSafety.h"

class CPipeThread : private vx::IForkChild {
public:
    CPipeThread(const CPipeThread&) = delete;
    CPipeThread& operator=(const CPipeThread&) = delete;

    // Sends one message in a single write, so that messages of several threads never interleave.
    // -1 (errno set) when there is no pipe or the write came up short.
    int send(const void* message, std::size_t size);

protected:
    CPipeThread();
    // A subclass calls finish() in its own destructor, while its members still exist.
    ~CPipeThread();

    // 0, or -1 with errno set. A non-blocking write end never blocks a signal handler.
    int openPipe(bool nonBlockingWrite);
    // Starts run() on a new thread named `name` (vx::startThread): 0, or the error number.
    int start(const char* name);
    // Ends the thread and closes the pipe. The caller has sent run() its stop message; when it
    // could not, closing the write end makes the thread's next read come up short, which must end
    // it too. Then joins.
    void finish(bool stopMessageSent);
    // Reads one whole message of `size` bytes: false on a short read or end of file.
    bool receive(void* message, std::size_t size);

    bool running() const { return m_running; }
    int readFd() const { return m_readFd.get(); }
    bool hasPipe() const { return m_writeFd.valid(); }

    virtual void run() = 0;
    // In a fork child, after the parent's thread was forgotten and the pipe copies closed.
    virtual void afterForkInChild() { }

private:
    void resetInChild() override;
    static void* threadMain(void* self);

    CFileDescriptor m_readFd;
    CFileDescriptor m_writeFd;
    pthread_t m_thread{};
    bool m_running = false;
};
