// The configured start and the worker thread: an inotify watch on the file in force and a pipe
// for messages, both waited on with epoll; a change event re-reads the configuration.
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <syslog.h>
#include <system_error>
#include <unistd.h>

#include "base/diag.h"
#include "base/processId.h"
#include "base/retryOnEintr.h"
#include "targets/CContainerLock.h"
#include "targets/CLogTargetContainer.h"

namespace {

constexpr uint32_t WATCH_MASK = IN_CLOSE_WRITE | IN_DELETE;
constexpr int MAX_EVENTS = 2;

// A watched file yields event records without a name: exactly the fixed 16-byte header.
constexpr std::size_t INOTIFY_RECORD_SIZE = sizeof(inotify_event);
static_assert(INOTIFY_RECORD_SIZE == 16, "inotify record header");

}  // namespace

void CLogTargetContainer::startWatcher()
{
    onCfgUpdate();
    if (init_fds() != 0 || init_epoll_evts() != 0) {
        vx::diag(LOG_ERR, "logtarget-container: unable to initialize event-handling - not worker thread will be spawned");
        return;
    }
    std::unique_ptr<std::thread> thread(new (std::nothrow) std::thread);
    if (!thread) {
        vx::diag(LOG_ERR, "logtarget-container: unable to create worker thread - config-changes will not be monitored. (errno=%s)",
                     vx::errnoText(errno));
        return;
    }
    try {
        *thread = std::thread(&CLogTargetContainer::outerThreadStartup, this);
    } catch (const std::system_error& e) {
        vx::diag(LOG_ERR, "logtarget-container: unable to create worker thread: exception caught: %s - errno=%s",
                     e.what(), vx::errnoText(errno));
        return;
    }
    m_workerThread = std::move(thread);
}

bool CLogTargetContainer::isForkChild() const
{
    return m_ownerPid != 0 && m_ownerPid != vx::currentPid();
}

void CLogTargetContainer::stopWatcher()
{
    if (isForkChild()) {
        // The worker and the watch are the parent's: the thread does not exist here, so its
        // handle is overwritten by an empty one (no join, no terminate), and removing the watch
        // from the shared inotify instance would end the parent's watching. Closing our copies
        // of the descriptors is all that is ours to do.
        if (m_workerThread) {
            new (m_workerThread.get()) std::thread();
            m_workerThread.reset();
        }
        m_watchDescriptor = -1;
    }
    if (m_workerThread) {
        if (threadNotifyTerminate() != 0) {
            vx::diag(LOG_ERR, "logtarget-container: unable to terminate worker thread - forcing exit. (errno=%s)",
                         vx::errnoText(errno));
            // The worker must not run on against a destroyed container: closing the write end
            // makes its next pipe read come up short, which ends it, so the join below returns.
            close_fd(m_pipeWriteFd);
        }
        try {
            m_workerThread->join();
        } catch (const std::system_error&) {
            // Destroyed on the worker itself (a plug-in ended the process from a re-read): it
            // cannot join itself and runs no further loop iteration once this returns.
            m_workerThread->detach();
        }
        m_workerThread.reset();
    }
    close_fd(m_epollFd);
    close_wd(m_watchDescriptor);
    close_fd(m_inotifyFd);
    close_fd(m_pipeReadFd);
    close_fd(m_pipeWriteFd);
}

int CLogTargetContainer::init_fds()
{
    m_ownerPid = vx::currentPid();
    m_epollFd = epoll_create1(EPOLL_CLOEXEC);
    if (m_epollFd == -1) {
        return -1;
    }
    m_inotifyFd = inotify_init1(IN_CLOEXEC);
    if (m_inotifyFd == -1) {
        close_fd(m_epollFd);
        return -1;
    }
    m_watchDescriptor = inotify_add_watch(m_inotifyFd, getDefaultCfgFilename().c_str(), WATCH_MASK);
    if (m_watchDescriptor == -1) {
        close_fd(m_inotifyFd);
        return -1;
    }
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        close_wd(m_watchDescriptor);
        return -1;
    }
    m_pipeReadFd = fds[0];
    m_pipeWriteFd = fds[1];
    return 0;
}

int CLogTargetContainer::init_epoll_evts()
{
    for (const int fd : {m_inotifyFd, m_pipeReadFd}) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        if (epoll_ctl(m_epollFd, EPOLL_CTL_ADD, fd, &event) != 0) {
            return -1;
        }
    }
    return 0;
}

void CLogTargetContainer::close_fd(int& fd)
{
    if (fd != -1) {
        close(fd);  // never retried: the descriptor is released even on EINTR
        fd = -1;
    }
}

void CLogTargetContainer::close_wd(int& wd)
{
    if (wd != -1 && m_inotifyFd != -1) {
        inotify_rm_watch(m_inotifyFd, wd);
        wd = -1;
    }
}

int CLogTargetContainer::notifyThread(thread_notification notification)
{
    // In a fork child the pipe leads to the parent's worker: the child has none of its own.
    if (m_pipeWriteFd == -1 || isForkChild()) {
        vx::diag(LOG_ERR, "logtarget-container: invalid pipe-fd (notify)");
        return -1;
    }
    const int message = notification;
    // One write of 4 bytes is atomic on a pipe, so messages of several threads never interleave.
    const ssize_t written = vx::retryOnEintr([&] { return write(m_pipeWriteFd, &message, sizeof message); });
    if (written != static_cast<ssize_t>(sizeof message)) {
        vx::diag(LOG_ERR, "logtarget-container: unable to write to pipe (notify) - errno=%s", vx::errnoText(errno));
        return -1;
    }
    return 0;
}

int CLogTargetContainer::threadNotifyTerminate()
{
    return notifyThread(notify_terminate);
}

int CLogTargetContainer::threadNotfiyAppname()
{
    return notifyThread(notify_appname);
}

void* CLogTargetContainer::outerThreadStartup(CLogTargetContainer* container)
{
    if (container != nullptr) {
        container->threadStartup();
    }
    return nullptr;
}

void CLogTargetContainer::threadStartup()
{
    threadEventLoop();
}

void* CLogTargetContainer::threadEventLoop()
{
    epoll_event events[MAX_EVENTS];
    for (;;) {
        const int count = epoll_wait(m_epollFd, events, MAX_EVENTS, -1);
        if (count < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            vx::diag(LOG_ERR, "logtarget-container: epoll failed with errno=%s - terminating watcher thread.",
                         vx::errnoText(errno));
            return nullptr;
        }
        if (count == 0) {
            vx::diag(LOG_ERR, "logtarget-container: epoll reported timeout!?");
            continue;
        }
        for (int i = 0; i < count; ++i) {
            const int fd = events[i].data.fd;
            if (fd == m_inotifyFd) {
                inotify_event event{};
                const ssize_t got = vx::retryOnEintr([&] { return read(fd, &event, INOTIFY_RECORD_SIZE); });
                if (got != static_cast<ssize_t>(INOTIFY_RECORD_SIZE)) {
                    vx::diag(LOG_ERR, "logtarget-container: unable to read inotify event - dropped event.");
                } else if ((event.mask & IN_IGNORED) != 0) {
                    vx::diag(LOG_DEBUG, "logtarget-container: got an inotify-event with IN_IGNORED set (mask=0x%x, watch-fd=%i)",
                                 event.mask, event.wd);
                } else {
                    vx::diag(LOG_DEBUG, "logtarget-container: vexlor configfile changed, triggering re-read.");
                    onCfgUpdate();
                }
            } else if (fd == m_pipeReadFd) {
                int message = -1;
                const ssize_t got = vx::retryOnEintr([&] { return read(fd, &message, sizeof message); });
                if (got != static_cast<ssize_t>(sizeof message)) {
                    vx::diag(LOG_ERR, "logtarget-container: worker unable to receive notification - terminating thread.");
                    return nullptr;
                }
                if (message == notify_terminate) {
                    vx::diag(LOG_DEBUG, "logtarget-container: got exit message - ending thread.");
                    return nullptr;
                }
                if (message == notify_appname) {
                    onAppnameChanged();
                }
            }
        }
    }
}

std::string CLogTargetContainer::lockedAppCfgFilename()
{
    // setAppname writes the name under the lock on another thread.
    CContainerLock guard(*this);
    return getAppCfgFilename();
}

void CLogTargetContainer::onAppnameChanged()
{
    if (m_watchDescriptor == -1 || m_inotifyFd == -1) {
        return;
    }
    const std::string appFileName = lockedAppCfgFilename();
    if (access(appFileName.c_str(), F_OK) != 0) {
        return;
    }
    vx::diag(LOG_DEBUG, "logtarget-container: removing old watch-descriptor %i", m_watchDescriptor);
    if (inotify_rm_watch(m_inotifyFd, m_watchDescriptor) != 0) {
        vx::diag(LOG_ERR, "logtarget-container: Unable remove old inotify watch - errno=%s", vx::errnoText(errno));
        return;
    }
    m_watchDescriptor = inotify_add_watch(m_inotifyFd, appFileName.c_str(), WATCH_MASK);
    if (m_watchDescriptor < 1) {
        vx::diag(LOG_ERR, "logtarget-container: Unable to watch application-specific config-file \"%s\" for changes - errno=%s",
                     appFileName.c_str(), vx::errnoText(errno));
        m_watchDescriptor = -1;
        return;
    }
    vx::diag(LOG_DEBUG, "logtarget-container: Watching application-specific config-file \"%s\" for changes",
                 appFileName.c_str());
}
