// Plays another local user in a security test (the test runs as root): a fork child that drops to
// that user and group with no supplementary groups, as `setpriv --reuid --regid --clear-groups`
// does, and runs an attack until the object goes (given the test's own uid, a child that stays
// as it is); and a fixture with a directory of that user's.
#pragma once

#include <csignal>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CTempDir.h"
#include "runInChild.h"

constexpr int NOBODY = 65534;

class COtherUser {
public:
    // Runs `body(ready)` as `uid` in a child; returns once the child called ready() or ended.
    template <typename Body>
    COtherUser(int uid, Body body)
    {
        int ready[2] = {-1, -1};
        char c = 0;
        if (pipe(ready) != 0 || (m_pid = forkWhenOthersSleep()) != 0) {
            close(ready[1]);
            m_ready = m_pid > 0 && read(ready[0], &c, 1) == 1;
            close(ready[0]);
            return;
        }
        if (uid == static_cast<int>(getuid()) || (setgroups(0, nullptr) == 0 && setgid(uid) == 0 && setuid(uid) == 0)) {
            body([&] { (void)!write(ready[1], &c, 1); });
        }
        _exit(126);
    }
    ~COtherUser()
    {
        if (m_pid > 0 && kill(m_pid, SIGKILL) == 0) {
            waitpid(m_pid, nullptr, 0);
        }
    }
    COtherUser(const COtherUser&) = delete;
    COtherUser& operator=(const COtherUser&) = delete;

    pid_t pid() const { return m_pid; }
    bool ready() const { return m_ready; }

private:
    pid_t m_pid = -1;
    bool m_ready = false;
};

// Runs `plant` as the other user; true once it is done.
template <typename Plant>
bool asOtherUser(Plant plant)
{
    const COtherUser other(NOBODY, [&](auto ready) {
        plant();
        ready();
    });
    return other.ready();
}

// Skipped unless root. The other user owns m_theirs, in a directory every user may pass through.
class COtherUserTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "plays another user: needs root";
        }
        chmod(m_dir.path().c_str(), 0755);
        mkdir(m_theirs.c_str(), 0755);
        ASSERT_EQ(0, chown(m_theirs.c_str(), NOBODY, NOBODY));
    }

    CTempDir m_dir;
    const std::string m_theirs = m_dir.file("theirs");
};
