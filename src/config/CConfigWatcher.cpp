// The configuration watcher (see CConfigWatcher.h).
#include "config/CConfigWatcher.h"

#include <cerrno>
#include <climits>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <syslog.h>
#include <system_error>
#include <unistd.h>

#include "base/diag.h"
#include "base/retryOnEintr.h"

namespace {

constexpr uint32_t WATCH_MASK = IN_CLOSE_WRITE | IN_DELETE;
constexpr int MAX_EVENTS = 2;
// Room for any one event, a name included: a fixed 16-byte read fails with EINVAL on an event
// with a name (a directory at the watched path), and that event would come back for ever.
constexpr std::size_t EVENT_BUFFER_SIZE = sizeof(inotify_event) + NAME_MAX + 1;

}  // namespace

int CConfigWatcher::openDescriptors(const std::string& defaultFile)
{
    m_epoll.reset(epoll_create1(EPOLL_CLOEXEC));
    m_inotify.reset(m_epoll.valid() ? inotify_init1(IN_CLOEXEC) : -1);
    if (!m_inotify.valid()) {
        return -1;
    }
    m_watch = inotify_add_watch(m_inotify.get(), defaultFile.c_str(), WATCH_MASK);
    if (m_watch == -1) {
        return -1;
    }
    if (openPipe(false) != 0) {
        removeWatch(m_watch);
        return -1;
    }
    return 0;
}

int CConfigWatcher::registerEvents()
{
    for (const int fd : {m_inotify.get(), readFd()}) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        if (epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
            return -1;
        }
    }
    return 0;
}

void CConfigWatcher::startWorker()
{
    const int rc = start("vexlor-config");
    if (rc != 0) {
        vx::diag(LOG_ERR, "logtarget-container: unable to create worker thread: exception caught: %s - errno=%s",
                 std::system_error(rc, std::generic_category()).what(), vx::errnoText(errno));
    }
}

void CConfigWatcher::stop()
{
    bool sent = true;
    if (running() && notify(TERMINATE) != 0) {
        sent = false;
        vx::diag(LOG_ERR, "logtarget-container: unable to terminate worker thread - forcing exit. (errno=%s)",
                 vx::errnoText(errno));
    }
    finish(sent);
    m_epoll.reset();
    removeWatch(m_watch);
    m_inotify.reset();
}

int CConfigWatcher::notify(Message message)
{
    if (!hasPipe()) {
        vx::diag(LOG_ERR, "logtarget-container: invalid pipe-fd (notify)");
        return -1;
    }
    const int value = message;
    if (send(&value, sizeof value) != 0) {
        vx::diag(LOG_ERR, "logtarget-container: unable to write to pipe (notify) - errno=%s", vx::errnoText(errno));
        return -1;
    }
    return 0;
}

void CConfigWatcher::removeWatch(int& watch)
{
    if (watch != -1 && m_inotify.valid()) {
        inotify_rm_watch(m_inotify.get(), watch);
        watch = -1;
    }
}

void CConfigWatcher::afterForkInChild()
{
    // The watch belongs to the inotify instance the parent shares: removing it would end the
    // parent's watching. A child follows no configuration changes.
    m_watch = -1;
    m_inotify.reset();
    m_epoll.reset();
}

void CConfigWatcher::eventLoop()
{
    epoll_event events[MAX_EVENTS];
    for (;;) {
        const int count = epoll_wait(m_epoll.get(), events, MAX_EVENTS, -1);
        if (count < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            vx::diag(LOG_ERR, "logtarget-container: epoll failed with errno=%s - terminating watcher thread.",
                     vx::errnoText(errno));
            return;
        }
        if (count == 0) {
            vx::diag(LOG_ERR, "logtarget-container: epoll reported timeout!?");
            continue;
        }
        for (int i = 0; i < count; ++i) {
            const int fd = events[i].data.fd;
            if (fd == m_inotify.get() && !onInotifyReadable()) {
                return;
            }
            if (fd == readFd() && !onPipeReadable()) {
                return;
            }
        }
    }
}

bool CConfigWatcher::onInotifyReadable()
{
    alignas(inotify_event) char buffer[EVENT_BUFFER_SIZE];
    const ssize_t got = vx::retryOnEintr([&] { return read(m_inotify.get(), buffer, sizeof buffer); });
    if (got < static_cast<ssize_t>(sizeof(inotify_event))) {
        vx::diag(LOG_ERR, "logtarget-container: unable to read inotify event - dropped event.");
        return true;
    }
    // The kernel hands out whole events only, as many as fit.
    for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= got;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        if ((event->mask & IN_IGNORED) != 0) {
            vx::diag(LOG_DEBUG,
                     "logtarget-container: got an inotify-event with IN_IGNORED set (mask=0x%x, watch-fd=%i)",
                     event->mask, event->wd);
        } else if (event->len == 0) {
            vx::diag(LOG_DEBUG, "logtarget-container: vexlor configfile changed, triggering re-read.");
            m_client.onConfigChanged();
        }
        // An event with a name concerns a file inside a directory that stands where the
        // configuration should be: the configuration itself has not changed.
    }
    return true;
}

bool CConfigWatcher::onPipeReadable()
{
    int message = -1;
    if (!receive(&message, sizeof message)) {
        vx::diag(LOG_ERR, "logtarget-container: worker unable to receive notification - terminating thread.");
        return false;
    }
    if (message == TERMINATE) {
        vx::diag(LOG_DEBUG, "logtarget-container: got exit message - ending thread.");
        return false;
    }
    if (message == APPNAME) {
        moveWatch();
    }
    return true;
}

void CConfigWatcher::moveWatch()
{
    if (m_watch == -1 || !m_inotify.valid()) {
        return;
    }
    const std::string appFile = m_client.appConfigFile();
    if (access(appFile.c_str(), F_OK) != 0) {
        return;
    }
    vx::diag(LOG_DEBUG, "logtarget-container: removing old watch-descriptor %i", m_watch);
    if (inotify_rm_watch(m_inotify.get(), m_watch) != 0) {
        vx::diag(LOG_ERR, "logtarget-container: Unable remove old inotify watch - errno=%s", vx::errnoText(errno));
        return;
    }
    m_watch = inotify_add_watch(m_inotify.get(), appFile.c_str(), WATCH_MASK);
    if (m_watch < 1) {
        vx::diag(LOG_ERR,
                 "logtarget-container: Unable to watch application-specific config-file \"%s\" for changes - errno=%s",
                 appFile.c_str(), vx::errnoText(errno));
        m_watch = -1;
        return;
    }
    vx::diag(LOG_DEBUG, "logtarget-container: Watching application-specific config-file \"%s\" for changes",
             appFile.c_str());
}
