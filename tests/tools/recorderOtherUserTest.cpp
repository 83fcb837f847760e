// Another local user (uid 65534) against the recorder's rings. The recorder target refuses a ring
// directory that user made or linked first (the per-user /tmp directory before its user's program
// starts, a link or a directory of theirs), with one error that says who, and puts nothing where
// they chose. Root's vexlorctl reads rings where that user may put what they like: texts that
// would drive the terminal, links to root's files, a FIFO, a huge sparse file, a truncated or
// random one, a default directory made before its user; it prints it all escaped, opens nothing
// through their link, never waits, reads within bounds, and says what it skipped.
#include <algorithm>
#include <filesystem>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "COtherUser.h"
#include "CSyslogCapture.h"
#include "container/CLogTargetContainer.h"
#include "vexlorctl.h"

namespace {

const int USER = NOBODY - 1;  // without $XDG_RUNTIME_DIR, its rings' default directory is under FALLBACK
const std::string FALLBACK = "/tmp/vexlor-" + std::to_string(USER);

// The container reads the recorder target's line in m_dir when it is told.
class CRecorderOtherUserTest : public COtherUserTest {
protected:
    CSyslogCapture m_syslog;
    CLogTargetContainer m_container{m_dir.path(), false, nullptr};
};

TEST_F(CRecorderOtherUserTest, TargetRefusesADirectoryTheyMadeOrLinked)
{
    const std::string shared = m_dir.file("shared");
    std::filesystem::create_directory(shared);
    chmod(shared.c_str(), 01777);
    // A program of `uid` loads a recorder with `dir`; 0 when syslog said `error` once (or, for
    // none, no error at all).
    const auto program = [&](int uid, const std::string& dir, const std::string& error) {
        m_dir.write("vexlor.cfg", "target = " VEXLOR_TEST_TARGET_RECORDER + dir + "\n");
        return runInChild([&] {
            if (setgroups(0, nullptr) != 0 || setgid(uid) != 0 || setuid(uid) != 0) {
                return 2;
            }
            unsetenv("XDG_RUNTIME_DIR");
            m_container.onCfgUpdate();
            m_container.log(42, 0, 0, 0, VX_INFO, "main", "net", "", "a record");
            return error.empty() ? m_syslog.countStarting("recorder target", LOG_ERR)
                                 : m_syslog.countContaining("recorder target \"recorder\": " + error) - 1;
        });
    };

    std::filesystem::remove_all(FALLBACK);
    ASSERT_TRUE(asOtherUser([&] { mkdir(FALLBACK.c_str(), 0777); }));
    EXPECT_EQ(
        0, program(USER, "", "will not make " + FALLBACK + "/recorder: " + FALLBACK + " may be written by uid 65534"));
    std::filesystem::remove_all(FALLBACK);
    ASSERT_TRUE(asOtherUser([&] {
        (void)!symlink(m_theirs.c_str(), FALLBACK.c_str());
        (void)!symlink(m_theirs.c_str(), (shared + "/linked").c_str());
    }));
    EXPECT_EQ(0, program(USER, "", FALLBACK + " is a symbolic link of uid 65534, which is not followed"));
    EXPECT_EQ(0,
              program(0, ", dir=" + shared + "/linked",
                      shared + "/linked is a symbolic link of uid 65534, which is not followed"));
    EXPECT_EQ(0, program(0, ", dir=" + m_theirs, m_theirs + " belongs to uid 65534, not to this user"));
    EXPECT_TRUE(std::filesystem::is_empty(m_theirs));

    // Made by its user first, the same directory serves, as 0700.
    std::filesystem::remove_all(FALLBACK);
    EXPECT_EQ(0, program(USER, "", ""));
    struct stat made { };
    ASSERT_EQ(0, stat((FALLBACK + "/recorder").c_str(), &made));
    EXPECT_EQ(std::make_tuple(static_cast<uid_t>(USER), 040700u), std::make_tuple(made.st_uid, made.st_mode + 0u));
    std::filesystem::remove_all(FALLBACK);
}

TEST_F(CRecorderOtherUserTest, VexlorctlReadsWhatTheyPlantWithinBoundsEscapedAndThroughNoLinkOfTheirs)
{
    // Root's own ring, in a directory only root may enter: one record whose every text would drive
    // a terminal, as would the application's name (with C0 controls only: a configuration file
    // drops bytes over 0x7f) and a file name of theirs.
    const std::string application = "\x1b]0;root@host\x07";
    m_dir.write("vexlor.cfg",
                "target = " VEXLOR_TEST_TARGET_RECORDER ", size=16K, dir=" + m_dir.file("root") +
                    ", application-name=" + application + "\n");
    m_container.onCfgUpdate();
    m_container.log(4242, 0, 0, 0, VX_INFO, "t\x1b[2J", "c\xc2\x9b\x31m", "f\n", "m\xff\xe2\x82");
    const std::string secret = m_dir.file("root/" + application + "." + std::to_string(getpid()) + ".ring");
    const std::string ring = readFile(secret);
    ASSERT_TRUE(asOtherUser([&] {
        const std::string at = m_theirs + "/";
        writeFile(at + "\x1b]0;\xc2\x9b\x31m.4242.ring", ring);
        writeFile(at + "short.1.ring", ring.substr(0, 100));
        writeFile(at + "random.2.ring", std::string(ring.size(), 'Z'));
        (void)!symlink(secret.c_str(), (at + "link.3.ring").c_str());
        mkfifo((at + "fifo.4.ring").c_str(), 0644);
        writeFile(at + "huge.5.ring", "");
        (void)!truncate((at + "huge.5.ring").c_str(), 1LL << 40);  // sparse: nothing on disk
    }));
    const CCommandResult rings = vexlorctl({"rings", "--dir=" + m_theirs});
    const CCommandResult dump = vexlorctl({"dump", application, "--dir=" + m_theirs, "--pattern=%a|%T|%c|%f|%m"});
    // Nothing but printable ASCII and line feeds: every other byte arrives escaped.
    const std::string all = rings.out + rings.err + dump.out + dump.err;
    EXPECT_TRUE(std::all_of(all.begin(), all.end(), [](char c) { return c == '\n' || (c >= 0x20 && c < 0x7f); }))
        << all;
    EXPECT_NE(std::string::npos, rings.out.find(" \\x1b]0;\\xc2\\x9b1m.4242.ring\n")) << rings.out;
    EXPECT_EQ(std::string::npos, rings.out.find("link.3.ring"));
    EXPECT_EQ("\\x1b]0;root@host\\x07|t\\x1b[2J|c\\xc2\\x9b1m|f\\n|m\\xff\\xe2\\x82\n",
              dump.out.substr(0, dump.out.find("--")));
    const std::string at = "vexlorctl: " + m_theirs + "/";
    for (const std::string& said :
         {at + "link.3.ring: is a symbolic link, which is not followed", at + "fifo.4.ring: not a regular file",
          at + "huge.5.ring: 1099511627776 bytes, more than any ring has (268435456 at most)",
          at + "short.1.ring: not a ring file of the recorder target",
          at + "random.2.ring: not a ring file of the recorder target"}) {
        EXPECT_NE(std::string::npos, rings.err.find(said + "\n")) << said << "\n" << rings.err;
    }
    // Named on the command line, their link is not followed either; one of root's is.
    EXPECT_EQ(1, vexlorctl({"dump", m_theirs + "/link.3.ring"}).status);
    ASSERT_EQ(0, symlink(secret.c_str(), m_dir.file("root/mine.ring").c_str()));
    EXPECT_NE(std::string::npos, vexlorctl({"dump", m_dir.file("root/mine.ring")}).out.find(" m\\xff\\xe2\\x82\n"));

    // In a directory everybody may write, a file of theirs is not a ring of the directory's owner.
    const std::string shared = m_dir.file("shared");
    std::filesystem::create_directory(shared);
    chmod(shared.c_str(), 01777);
    ASSERT_TRUE(asOtherUser([&] { writeFile(shared + "/app.1.ring", ring); }));
    const CCommandResult skipped = vexlorctl({"dump", "app.1.ring", "--dir=" + shared});
    EXPECT_EQ(std::make_tuple(1, std::string()), std::make_tuple(skipped.status, skipped.out));
    EXPECT_NE(std::string::npos,
              skipped.err.find("app.1.ring: belongs to uid 65534, not to the directory's owner: skipped"));

    // Without $XDG_RUNTIME_DIR, USER reads its default directory, which the other user made first.
    std::filesystem::remove_all(FALLBACK);
    ASSERT_TRUE(asOtherUser([&] {
        std::filesystem::create_directories(FALLBACK + "/recorder");
        writeFile(FALLBACK + "/recorder/app.1.ring", ring);
    }));
    unsetenv("XDG_RUNTIME_DIR");
    const CCommandResult result = vexlorctl({"dump", "app"}, USER);
    std::filesystem::remove_all(FALLBACK);
    EXPECT_EQ(std::make_tuple(1, std::string()), std::make_tuple(result.status, result.out));
    EXPECT_NE(std::string::npos, result.err.find(FALLBACK + "/recorder belongs to uid 65534, not to this user"))
        << result.err;
}

}  // namespace
