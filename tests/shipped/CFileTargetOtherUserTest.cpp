// Another local user (uid 65534, played through setpriv) tries to make a root program's file target
// append to a root-only file: a symbolic link planted at the log path before start or swapped in
// while it runs, a directory that user can write, a file of that user's. The victim is never
// written, and syslog says why the path was refused.
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "CFileTargetFixture.h"

namespace {

constexpr unsigned NOBODY = 65534;

class CFileTargetOtherUserTest : public CFileTargetFixture {
protected:
    CFileTargetOtherUserTest()
    {
        chmod(m_dir.path().c_str(), 0755);  // the other user may pass through
        writeFile(m_victim, "secret\n");
        chmod(m_victim.c_str(), 0600);
    }

    // Runs `command` with sh as the other user; its exit status.
    static int asOtherUser(const std::string& command)
    {
        return std::system(("setpriv --reuid=65534 --regid=65534 --clear-groups sh -c '" + command + "'").c_str());
    }
    // A directory in the log directory with this mode and owner.
    std::string directory(const std::string& name, mode_t mode, uid_t owner = 0) const
    {
        const std::string path = logPath(name);
        std::filesystem::create_directory(path);
        chmod(path.c_str(), mode);
        EXPECT_EQ(0, chown(path.c_str(), owner, owner));
        return path;
    }

    const std::string m_victim = m_dir.file("victim");
};

TEST_F(CFileTargetOtherUserTest, RefusesAPathThatAnotherUserCouldHaveRedirected)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "plays another user: needs root";
    }
    const std::string open = directory("open", 0777);
    const std::string theirs = directory("theirs", 0755, NOBODY);
    const std::string sticky = directory("sticky", 01777);
    ASSERT_EQ(0,
              asOtherUser("ln -s " + m_victim + " " + open + "/app.log && ln -s " + m_victim + " " + theirs +
                          "/app.log && ln -s " + m_victim + " " + sticky + "/link.log && echo >" + sticky +
                          "/their.log"));
    const std::pair<std::string, std::string> cases[] = {
        {open + "/app.log",
         "its directory " + open +
             " (mode 0777, owner uid 0, group gid 0) can be written by other "
             "users and has no sticky bit"},
        {theirs + "/app.log",
         "its directory " + theirs +
             " (mode 0755, owner uid 65534, group gid 65534) can be "
             "written by other users and has no sticky bit"},
        {sticky + "/link.log", "is a symbolic link, which is not followed"},
        {sticky + "/their.log",
         "it belongs to uid 65534, not to this program's user, and its directory " + sticky +
             " (mode 1777, owner uid 0, group gid 0) can be written by other users"},
    };
    for (const auto& [path, why] : cases) {
        m_syslog.clear();
        read("target = " VEXLOR_TEST_TARGET_FILE ", path=" + path + "\n");
        EXPECT_EQ(1, m_syslog.countContaining("file target \"file\": path=" + path + ": cannot open: " + why)) << path;
    }
    EXPECT_EQ("secret\n", readFile(m_victim));
}

// In a sticky directory such as /tmp the other user cannot touch the program's file, but may take
// its name once the file has gone: after a move (logrotate) and after a removal.
TEST_F(CFileTargetOtherUserTest, NeverFollowsALinkSwappedInWhileItRuns)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "plays another user: needs root";
    }
    const std::string path = directory("sticky", 01777) + "/app.log";
    read("target = " VEXLOR_TEST_TARGET_FILE ", path=" + path + ", pattern=%m\n");
    logRecords(0, 1);
    ASSERT_EQ(0, std::rename(path.c_str(), (path + ".1").c_str()));
    ASSERT_EQ(0, asOtherUser("ln -s " + m_victim + " " + path));
    const std::string who = "file target \"file\" (" + path + ")";
    ASSERT_TRUE(m_syslog.waitFor(who +
                                 ": cannot reopen: is a symbolic link, which is not followed; writing on to the "
                                 "moved file"));
    logRecords(1, 1);
    EXPECT_EQ(range(0, 2), recordNumbers(linesOf(path + ".1")));
    std::filesystem::remove(path + ".1");
    int next = 2;
    ASSERT_TRUE(waitUntil([&] {
        logRecords(next++, 1);
        return m_syslog.contains(who +
                                 ": reopen failed: is a symbolic link, which is not followed; records are lost "
                                 "until it works again (tried again with every record)");
    }));
    read("");
    EXPECT_EQ("secret\n", readFile(m_victim));
    EXPECT_EQ(1, m_syslog.countStarting(who + ": reopen failed: is a symbolic link", LOG_ERR));
}

}  // namespace
