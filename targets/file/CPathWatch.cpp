// The inotify watch on the log's directory.
#include "CPathWatch.h"

#include <cerrno>
#include <sys/inotify.h>
#include <unistd.h>

CPathWatch::CPathWatch()
    : m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
}

CPathWatch::~CPathWatch()
{
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

void CPathWatch::watch(const std::string& path)
{
    if (m_fd < 0) {
        return;
    }
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    // Events for any name in the directory: a false alarm costs one stat, and the names need no
    // bookkeeping shared with the thread that reads them.
    const int watch = inotify_add_watch(m_fd, directory.c_str(),
                                        IN_CREATE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_DELETE_SELF |
                                            IN_MOVE_SELF | IN_ONLYDIR);
    if (m_watch >= 0 && m_watch != watch) {
        inotify_rm_watch(m_fd, m_watch);
    }
    m_watch = watch;
}

bool CPathWatch::drain()
{
    alignas(inotify_event) char events[4096];
    bool any = false;
    for (;;) {
        const ssize_t got = ::read(m_fd, events, sizeof events);
        if (got > 0) {
            any = true;
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else {
            return any;  // EAGAIN: nothing more waits
        }
    }
}
