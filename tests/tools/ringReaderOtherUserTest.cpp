// Root's vexlorctl reads rings where another local user (uid 65534) may put what they like: texts
// that would drive the terminal, links to root's files, a FIFO, a huge sparse file, a truncated or
// random one, a default directory made before its user. vexlorctl prints it all escaped, opens
// nothing through their link, never waits, reads within bounds, and says what it skipped.
#include <algorithm>
#include <array>
#include <filesystem>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CCommand.h"
#include "COtherUser.h"
#include "CTempDir.h"
#include "crc32c.h"
#include "ringFormat.h"

namespace {

namespace ring = vexlor_ring;
using vexlor_ring::crc32c;

// A ring as the recorder writes it, holding whatever texts (thread, component, function,
// message) a program gives.
std::string ringFile(int pid, const std::string& application, const std::vector<std::array<std::string, 4>>& records)
{
    std::string file(ring::MIN_FILE_SIZE, '\0');
    auto* bytes = reinterpret_cast<unsigned char*>(&file[0]);
    std::memcpy(bytes, ring::MAGIC, sizeof ring::MAGIC);
    ring::store<std::uint16_t>(bytes + ring::header::MAJOR, ring::MAJOR);
    ring::store<std::uint32_t>(bytes + ring::header::HEADER_SIZE, ring::HEADER_SIZE);
    ring::store<std::uint32_t>(bytes + ring::header::RING_SIZE, std::uint32_t{ring::MIN_FILE_SIZE - ring::HEADER_SIZE});
    ring::store<std::int32_t>(bytes + ring::header::PID, pid);
    ring::store<std::uint32_t>(bytes + ring::header::HEADER_CHECKSUM, crc32c(bytes, ring::header::HEADER_CHECKSUM));
    ring::store<std::uint32_t>(bytes + ring::header::NAME_LENGTH, static_cast<std::uint32_t>(application.size()));
    std::memcpy(bytes + ring::header::NAME, application.data(), application.size());
    ring::store<std::uint32_t>(
        bytes + ring::header::NAME_CHECKSUM,
        crc32c(bytes + ring::header::NAME, application.size(), crc32c(bytes + ring::header::NAME_LENGTH, 4)));
    unsigned char* at = bytes + ring::HEADER_SIZE;
    std::uint64_t sequence = 1;
    for (const auto& texts : records) {
        const std::string joined = texts[0] + texts[1] + texts[2] + texts[3];
        const std::size_t length = ring::record::TEXT + joined.size();
        ring::store<std::uint32_t>(at + ring::record::LENGTH, static_cast<std::uint32_t>(length));
        ring::store<std::uint64_t>(at + ring::record::SEQUENCE, sequence++);
        ring::store<std::uint32_t>(at + ring::record::LEVEL, 6);
        for (std::size_t i = 0; i < 4; ++i) {
            ring::store<std::uint16_t>(at + ring::record::THREAD_LENGTH + 2 * i,
                                       static_cast<std::uint16_t>(texts[i].size()));
        }
        std::memcpy(at + ring::record::TEXT, joined.data(), joined.size());
        ring::store<std::uint32_t>(at + ring::record::CHECKSUM,
                                   crc32c(at + ring::record::LENGTH, ring::aligned(length) - ring::record::LENGTH));
        ring::store<std::uint32_t>(at + ring::record::COMMIT, ring::COMMITTED);
        at += ring::aligned(length);
    }
    return file;
}

CCommandResult vexlorctl(std::vector<std::string> args, int asUid = -1)
{
    args.insert(args.begin(), VEXLOR_TEST_VEXLORCTL);
    return runCommand(args, asUid);
}

// Nothing but printable ASCII and line feeds: every other byte of these rings arrives escaped.
bool plain(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c == '\n' || (c >= 0x20 && c < 0x7f); });
}

using CRingReaderOtherUserTest = COtherUserTest;

TEST_F(CRingReaderOtherUserTest, PrintsEveryTextOfARingEscaped)
{
    const std::string name = "\x1b]0;root@host\x07\xc2\x9b"
                             "31m";
    ASSERT_TRUE(asOtherUser([&] {
        writeFile(m_theirs + "/" + name + ".4242.ring",
                  ringFile(4242, name,
                           {{"t\x1b[2J",
                             "c\xc2\x9b"
                             "1m",
                             "f\n", "m\xff\xe2\x82"}}));
    }));
    const CCommandResult rings = vexlorctl({"rings", "--dir=" + m_theirs});
    const CCommandResult dump = vexlorctl({"dump", "4242", "--dir=" + m_theirs, "--pattern=%a|%T|%c|%f|%m"});
    EXPECT_TRUE(plain(rings.out + rings.err + dump.out + dump.err)) << rings.out << dump.out;
    const std::string shown = "\\x1b]0;root@host\\x07\\xc2\\x9b31m";
    EXPECT_NE(std::string::npos, rings.out.find(shown + ".4242.ring")) << rings.out;
    EXPECT_EQ(shown + "|t\\x1b[2J|c\\xc2\\x9b1m|f\\n|m\\xff\\xe2\\x82\n", dump.out.substr(0, dump.out.find("--")));
}

// Root's own ring sits in a directory only root may enter; the other user links to it, and plants
// what would hang a reader, exhaust its memory or crash it.
TEST_F(CRingReaderOtherUserTest, FollowsNoLinkOfTheirsAndReadsOnlyRegularFilesWithinBounds)
{
    const std::string secret = m_dir.file("root/secret.ring");
    std::filesystem::create_directory(m_dir.file("root"));
    writeFile(secret, ringFile(1, "root-app", {{"main", "auth", "", "the secret"}}));
    const std::string good = ringFile(4242, "good", {{"main", "net", "", "hello"}});
    ASSERT_TRUE(asOtherUser([&] {
        const std::string at = m_theirs + "/";
        writeFile(at + "good.4242.ring", good);
        writeFile(at + "short.1.ring", good.substr(0, 100));
        writeFile(at + "random.2.ring", std::string(ring::MIN_FILE_SIZE, '\x5a'));
        (void)!symlink(secret.c_str(), (at + "link.3.ring").c_str());
        mkfifo((at + "fifo.4.ring").c_str(), 0644);
        writeFile(at + "huge.5.ring", "");
        (void)!truncate((at + "huge.5.ring").c_str(), 1LL << 40);  // sparse: nothing on disk
    }));
    const CCommandResult rings = vexlorctl({"rings", "--dir=" + m_theirs});
    EXPECT_EQ(0, rings.status);
    EXPECT_NE(std::string::npos, rings.out.find("good.4242.ring"));
    EXPECT_EQ(std::string::npos, rings.out.find("root-app"));
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
    EXPECT_NE(std::string::npos, vexlorctl({"dump", m_dir.file("root/mine.ring")}).out.find("the secret"));

    // In a directory everybody may write, a file of theirs is not a ring of the directory's owner.
    const std::string shared = m_dir.file("shared");
    std::filesystem::create_directory(shared);
    chmod(shared.c_str(), 01777);
    ASSERT_TRUE(asOtherUser([&] { writeFile(shared + "/app.1.ring", ringFile(1, "app", {{"", "", "", "theirs"}})); }));
    const CCommandResult skipped = vexlorctl({"dump", "app", "--dir=" + shared});
    EXPECT_EQ(std::make_tuple(1, std::string::npos), std::make_tuple(skipped.status, skipped.out.find("theirs")));
    EXPECT_NE(std::string::npos,
              skipped.err.find("app.1.ring: belongs to uid 65534, not to the directory's owner: skipped"));
}

// A user without $XDG_RUNTIME_DIR reads /tmp/vexlor-<uid>/recorder; another user made it first.
TEST_F(CRingReaderOtherUserTest, ReadsNoDefaultDirectoryAnotherUserMade)
{
    const int user = NOBODY - 1;
    const std::string planted = "/tmp/vexlor-" + std::to_string(user);
    std::filesystem::remove_all(planted);
    ASSERT_TRUE(asOtherUser([&] {
        std::filesystem::create_directories(planted + "/recorder");
        writeFile(planted + "/recorder/app.1.ring", ringFile(1, "app", {{"", "", "", "planted"}}));
    }));
    unsetenv("XDG_RUNTIME_DIR");
    const CCommandResult result = vexlorctl({"dump", "app"}, user);
    std::filesystem::remove_all(planted);
    EXPECT_EQ(std::make_tuple(1, std::string::npos), std::make_tuple(result.status, result.out.find("planted")));
    EXPECT_NE(std::string::npos, result.err.find(planted + "/recorder belongs to uid 65534, not to this user"))
        << result.err;
}

}  // namespace
