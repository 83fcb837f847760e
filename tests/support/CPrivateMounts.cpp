// See CPrivateMounts.h.
#include "CPrivateMounts.h"

#include <cerrno>
#include <cstring>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>

CPrivateMounts::CPrivateMounts()
{
    if (unshare(CLONE_NEWNS) != 0) {
        m_why = std::string("cannot make a private mount namespace (unshare: ") + std::strerror(errno) + ")";
    } else if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        // Otherwise the mounts would propagate back into the machine's namespace.
        m_why = std::string("cannot make / private: ") + std::strerror(errno);
    }
}

// Detaches what is mounted, newest first, so that the test's directories can go.
CPrivateMounts::~CPrivateMounts()
{
    for (auto it = m_mounted.rbegin(); it != m_mounted.rend(); ++it) {
        umount2(it->c_str(), MNT_DETACH);
    }
}

void CPrivateMounts::tmpfs(const std::string& directory, const std::string& size)
{
    if (mount("tmpfs", directory.c_str(), "tmpfs", 0, ("size=" + size).c_str()) != 0) {
        throw std::runtime_error("mount tmpfs on " + directory + ": " + std::strerror(errno));
    }
    m_mounted.push_back(directory);
}

void CPrivateMounts::bind(const std::string& file, const std::string& target)
{
    if (mount(file.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        throw std::runtime_error("bind " + file + " on " + target + ": " + std::strerror(errno));
    }
    m_mounted.push_back(target);
}
