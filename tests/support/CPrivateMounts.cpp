// See CPrivateMounts.h.
#include "CPrivateMounts.h"

#include <cerrno>
#include <cstring>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>

namespace {

void check(int result, const std::string& what)
{
    if (result != 0) {
        throw std::runtime_error(what + ": " + std::strerror(errno));
    }
}

}  // namespace

CPrivateMounts::CPrivateMounts()
{
    if (unshare(CLONE_NEWNS) != 0) {
        m_why = std::string("cannot make a private mount namespace (unshare: ") + std::strerror(errno) + ")";
    } else if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        // Otherwise the mounts would propagate back into the machine's namespace.
        m_why = std::string("cannot make / private: ") + std::strerror(errno);
    }
}

// Detaches what is still mounted, newest first, so that the test's directories can go; a path
// unmounted already just fails.
CPrivateMounts::~CPrivateMounts()
{
    for (auto it = m_mounted.rbegin(); it != m_mounted.rend(); ++it) {
        umount2(it->c_str(), MNT_DETACH);
    }
}

void CPrivateMounts::tmpfs(const std::string& directory, const std::string& size)
{
    check(mount("tmpfs", directory.c_str(), "tmpfs", 0, ("size=" + size).c_str()), "mount tmpfs on " + directory);
    m_mounted.push_back(directory);
}

void CPrivateMounts::bind(const std::string& from, const std::string& to)
{
    check(mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr), "bind " + from + " to " + to);
    m_mounted.push_back(to);
}

void CPrivateMounts::makeReadOnly(const std::string& bindMount)
{
    check(mount("none", bindMount.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr),
          "remount " + bindMount + " read-only");
}

void CPrivateMounts::unmount(const std::string& directory)
{
    check(umount2(directory.c_str(), 0), "unmount " + directory);
}
