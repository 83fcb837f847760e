// Another local user (uid 65534, played through setpriv) tries to make a root program's file target
// append to a root-only file: a symbolic link planted at the log path before start or swapped in
// while it runs (after a move, after a removal), a directory that user can write, a file of that
// user's. The victim is never written, and syslog says why the path was refused.
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "CFileTargetFixture.h"

namespace {

using CFileTargetOtherUserTest = CFileTargetFixture;

TEST_F(CFileTargetOtherUserTest, NeverWritesWhereAnotherUserCouldHaveRedirectedThePath)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "plays another user: needs root";
    }
    const std::string victim = m_dir.write("victim", "secret\n");
    chmod(victim.c_str(), 0600);
    chmod(m_dir.path().c_str(), 0755);  // the other user may pass through
    std::string plant;  // what the other user does, as one shell command
    for (const auto& [name, mode, owner] :
         {std::tuple("open", 0777, 0), {"theirs", 0755, 65534}, {"sticky", 01777, 0}}) {
        std::filesystem::create_directory(logPath(name));
        chmod(logPath(name).c_str(), static_cast<mode_t>(mode));
        ASSERT_EQ(0, chown(logPath(name).c_str(), static_cast<uid_t>(owner), static_cast<gid_t>(owner)));
        plant += "ln -s " + victim + " " + logPath(name) + "/link.log; ";
    }
    const auto asOtherUser = [](const std::string& command) {
        return std::system(("setpriv --reuid=65534 --regid=65534 --clear-groups sh -c '" + command + "'").c_str());
    };
    ASSERT_EQ(0, asOtherUser(plant + "echo >" + logPath("sticky/their.log")));
    const std::string others = " can be written by other users";
    const std::pair<std::string, std::string> planted[] = {
        {"open/link.log", "its directory " + logPath("open") + " (mode 0777, owner uid 0, group gid 0)" + others},
        {"theirs/link.log",
         "its directory " + logPath("theirs") + " (mode 0755, owner uid 65534, group gid 65534)" + others},
        {"sticky/link.log", "is a symbolic link, which is not followed"},
        {"sticky/their.log",
         "it belongs to uid 65534, not to this program's user, and its directory " + logPath("sticky") +
             " (mode 1777, owner uid 0, group gid 0)" + others},
    };
    for (const auto& [file, why] : planted) {
        read(fileTarget(file, "pattern=%m"));
        EXPECT_EQ(1, m_syslog.countContaining("path=" + logPath(file) + ": cannot open: " + why)) << file;
    }

    // Swapped in while it runs: in a sticky directory the name is free once root moved or removed the file.
    const std::string path = logPath("sticky/app.log");
    const std::string who = "file target \"file\" (" + path + "): ";
    read(fileTarget("sticky/app.log", "pattern=%m"));
    logRecords(0, 1);
    ASSERT_EQ(0, std::rename(path.c_str(), (path + ".1").c_str()));
    ASSERT_EQ(0, asOtherUser("ln -s " + victim + " " + path));
    ASSERT_TRUE(m_syslog.waitFor(who +
                                 "cannot reopen: is a symbolic link, which is not followed; writing on to the "
                                 "moved file"));
    logRecords(1, 1);
    EXPECT_EQ(range(0, 2), recordNumbers(linesOf(path + ".1")));
    std::filesystem::remove(path + ".1");
    ASSERT_TRUE(waitUntil([&] {
        logRecords(2, 1);
        return m_syslog.countStarting(who + "reopen failed: is a symbolic link, which is not followed", LOG_ERR) == 1;
    }));
    read("");
    EXPECT_EQ("secret\n", readFile(victim));
}

}  // namespace
