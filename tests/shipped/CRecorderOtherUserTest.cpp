// Another local user (uid 65534) gets to a program's ring directory first: the per-user /tmp
// directory made or linked before its user's program starts, a link or a directory of theirs in a
// sticky directory. The recorder target refuses each with one error that says who, and puts
// nothing where they chose.
#include <grp.h>
#include <sys/stat.h>
#include <syslog.h>

#include "COtherUser.h"
#include "CTargetFixture.h"

namespace {

using CRecorderOtherUserTest = CTargetFixture;

TEST_F(CRecorderOtherUserTest, RefusesADirectoryAnotherUserMadeOrLinked)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "plays another user: needs root";
    }
    const int user = NOBODY - 1;  // the program's user, without $XDG_RUNTIME_DIR
    const std::string fallback = "/tmp/vexlor-" + std::to_string(user);
    const std::string shared = m_dir.file("shared");
    const std::string mine = m_dir.file("mine");  // a directory the planted links lead to
    std::filesystem::remove_all(fallback);
    chmod(m_dir.path().c_str(), 0755);
    std::filesystem::create_directory(shared);
    chmod(shared.c_str(), 01777);
    std::filesystem::create_directory(mine);
    ASSERT_EQ(0, chown(mine.c_str(), user, user));
    // The program as `uid` loads a recorder with `dir`; 0 when syslog said `error` once.
    const auto program = [&](int uid, const std::string& dir, const std::string& error) {
        m_dir.write("vexlor.cfg", "target = " VEXLOR_TEST_TARGET_RECORDER + dir + "\n");
        return runInChild([&] {
            if (setgroups(0, nullptr) != 0 || setgid(uid) != 0 || setuid(uid) != 0) {
                return 2;
            }
            unsetenv("XDG_RUNTIME_DIR");
            m_container.onCfgUpdate();
            log(VX_INFO, "a record");
            const int said = error.empty() ? m_syslog.countStarting("recorder target", LOG_ERR)
                                           : m_syslog.countContaining("recorder target \"recorder\": " + error);
            if (said == (error.empty() ? 0 : 1)) {
                return 0;
            }
            for (const CSyslogMessage& m : m_syslog.messages()) {
                std::cerr << m.text << "\n";
            }
            return 1;
        });
    };

    ASSERT_TRUE(asOtherUser([&] { mkdir(fallback.c_str(), 0777); }));
    EXPECT_EQ(
        0, program(user, "", "will not make " + fallback + "/recorder: " + fallback + " may be written by uid 65534"));
    std::filesystem::remove_all(fallback);
    ASSERT_TRUE(asOtherUser([&] { (void)!symlink(mine.c_str(), fallback.c_str()); }));
    EXPECT_EQ(0, program(user, "", fallback + " is a symbolic link of uid 65534, which is not followed"));
    std::filesystem::remove_all(fallback);

    ASSERT_TRUE(asOtherUser([&] {
        (void)!symlink(mine.c_str(), (shared + "/linked").c_str());
        mkdir((shared + "/theirs").c_str(), 0777);
    }));
    EXPECT_EQ(0,
              program(0, ", dir=" + shared + "/linked",
                      shared + "/linked is a symbolic link of uid 65534, which is not followed"));
    EXPECT_EQ(0, program(0, ", dir=" + shared + "/theirs", shared + "/theirs belongs to uid 65534, not to this user"));
    EXPECT_TRUE(std::filesystem::is_empty(mine) && std::filesystem::is_empty(shared + "/theirs"));

    // Made by its user first, the same directory serves: 0700, and the ring 0600.
    EXPECT_EQ(0, program(user, "", ""));
    struct stat dir { };
    ASSERT_EQ(0, stat((fallback + "/recorder").c_str(), &dir));
    EXPECT_EQ(std::make_tuple(static_cast<uid_t>(user), 040700u), std::make_tuple(dir.st_uid, dir.st_mode + 0u));
    std::filesystem::remove_all(fallback);
}

}  // namespace
