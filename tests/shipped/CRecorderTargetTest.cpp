// The recorder target through the container, its rings read back with vexlorctl's reader: what a
// record keeps, a full file system, fork children and keep=, rings of earlier processes, a ring
// smaller than what is logged, damaged records, and one ring format on every architecture.
#include <set>
#include <tuple>

#include "COtherUser.h"
#include "CPrivateMounts.h"
#include "CTargetFixture.h"
#include "ringFormat.h"
#include "ringReader.h"

namespace {

namespace ring = vexlor_ring;

class CRecorderTargetTest : public CTargetFixture {
protected:
    void load(const std::string& parameters)
    {
        read("target = " VEXLOR_TEST_TARGET_RECORDER ", dir=" + m_rings + ", size=16K" + parameters + "\n");
    }
    static std::string own(int pid = getpid())
    {
        return std::string(program_invocation_short_name) + "." + std::to_string(pid) + ".ring";
    }
    CRing ringOf(const std::string& name) const
    {
        CRing found;
        std::string error;
        EXPECT_TRUE(readRingFile(m_rings + "/" + name, found, error)) << error;
        return found;
    }

    const std::string m_rings = m_dir.file("rings");
};

TEST_F(CRecorderTargetTest, KeepsEveryValueOfTheRecordsItsLevelsTakeAndOutlivesTheTargetUnlessAsked)
{
    load(", levels=emerg-info");
    m_container.log(7, 3, SECONDS, 123456, VX_WARN, "worker", "net", "connect", "link down");
    log(VX_DEBUG, "filtered out");
    log(VX_INFO, std::string(5000, 'm'));
    const CRing found = ringOf(own());
    ASSERT_EQ(2u, found.records.size());
    const CRingRecord& first = found.records[0];
    EXPECT_EQ(std::make_tuple(1ull, 7, 3, SECONDS, 123456, 4u),
              std::make_tuple(first.sequence, first.pid, first.depth, first.seconds, first.microseconds, first.level));
    EXPECT_EQ("worker net connect link down",
              first.thread + " " + first.component + " " + first.function + " " + first.message);
    EXPECT_EQ(std::string(ring::MAX_MESSAGE_TEXT, 'm'), found.records[1].message);  // cut, not lost
    EXPECT_EQ(std::make_tuple(0ull, 0ull, getpid()),
              std::make_tuple(found.overwritten, found.skipped, found.header.pid));
    using std::filesystem::perms;
    EXPECT_EQ(std::make_tuple(perms::owner_read | perms::owner_write, perms::owner_all, std::uintmax_t{16384}),
              std::make_tuple(std::filesystem::status(m_rings + "/" + own()).permissions(),
                              std::filesystem::status(m_rings).permissions(),
                              std::filesystem::file_size(m_rings + "/" + own())));
    // Unloaded, the ring stays unless remove-on-unload=1; a new ring of the same pid (a pid seen
    // again after a reboot, with dir= on flash) puts it aside.
    read("");
    load("");
    EXPECT_EQ(2u, ringOf(own().substr(0, own().size() - 5) + ".1.ring").records.size());
    EXPECT_TRUE(ringOf(own()).records.empty());
    read("");
    load(", remove-on-unload=1");
    log(VX_INFO, "gone with the target");
    read("");
    EXPECT_FALSE(std::filesystem::exists(m_rings + "/" + own()));
}

TEST_F(CRecorderTargetTest, FullFileSystemRefusesCreationOnce)
{
    CPrivateMounts mounts;
    if (!mounts.ok()) {
        GTEST_SKIP() << mounts.why();
    }
    std::filesystem::create_directory(m_rings);
    mounts.tmpfs(m_rings, "8k,mode=0700");
    load(", name=black-box");
    log(VX_INFO, "the program runs on");
    EXPECT_EQ(1,
              m_syslog.countContaining("recorder target \"black-box\": cannot allocate 16384 bytes for " + m_rings +
                                       "/" + own() + ": No space left on device"));
    EXPECT_TRUE(std::filesystem::is_empty(m_rings));  // nothing half made left behind
}

// Each fork child's first record makes a ring of its own, and with it keep=3 prunes: the ring
// being made and those of live processes stay, then the newest ended ones up to three.
TEST_F(CRecorderTargetTest, ForkChildrenWriteRingsOfTheirOwnAndKeepPrunesOnlyEndedOnes)
{
    load(", keep=3");
    log(VX_INFO, "parent 1");
    const auto ended = [&](int child) {
        EXPECT_EQ(0, runInChild([&] {
                      log(VX_INFO, "child " + std::to_string(child));
                      return 0;
                  }));
    };
    ended(1);
    ended(2);
    const COtherUser live(static_cast<int>(getuid()), [&](auto ready) {
        log(VX_INFO, "live");
        ready();
        pause();
    });
    ASSERT_TRUE(live.ready());
    ended(3);
    log(VX_INFO, "parent 2");
    std::set<std::string> left;  // each ring's newest record and its sequence number
    for (const auto& entry : std::filesystem::directory_iterator(m_rings)) {
        const CRing found = ringOf(entry.path().filename());
        EXPECT_EQ(own(found.header.pid), entry.path().filename());
        left.insert(found.records.back().message + " #" + std::to_string(found.records.back().sequence));
    }
    EXPECT_EQ(std::set<std::string>({"parent 2 #2", "live #1", "child 3 #1"}), left);
}

// Records of many sizes lap the ring many times. The record bytes are the same whatever the machine
// that writes them: this ring was written by this test on armhf (under qemu), and every build
// writes it again byte for byte (vexlorctl reads it in recorderCrashTest).
TEST_F(CRecorderTargetTest, HoldsTheNewestRecordsInTheSameBytesOnEveryArchitectureAndSkipsDamagedOnes)
{
    load(", application-name=golden");
    const auto text = [](int i) {
        return "message " + std::to_string(i) + std::string(i % 25 == 24 ? 500 : i * 7 % 13, '.');
    };
    for (int i = 0; i < 1000; ++i) {
        m_container.log(4242, i % 4, SECONDS + i, i * 1000, i % 3 == 0 ? VX_ERR : VX_DEBUG,
                        "thread " + std::to_string(i % 2), "net", i % 4 ? "poll" : "", text(i));
    }
    const std::string name = "golden." + std::to_string(getpid()) + ".ring";
    const CRing found = ringOf(name);
    EXPECT_EQ(std::make_tuple(1000ull, 0ull, text(999)),
              std::make_tuple(found.overwritten + found.records.size(), found.skipped, found.records.back().message));
    const std::string expected = readFile(VEXLOR_TEST_SOURCE_DIR "/data/recorder-armhf.ring");
    const std::string actual = readFile(m_rings + "/" + name);
    ASSERT_EQ(16384u, expected.size());
    EXPECT_TRUE(expected.compare(ring::HEADER_SIZE, std::string::npos, actual, ring::HEADER_SIZE) == 0);

    // A byte changed in each of two records held: both are skipped and counted, nothing else.
    std::string bytes = actual;
    for (const int i : {900, 990}) {
        bytes[bytes.find(text(i))] ^= 1;
    }
    CRing damaged;
    std::string error;
    ASSERT_TRUE(parseRing(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), damaged, error));
    EXPECT_EQ(std::make_tuple(found.records.size() - 2, 2ull, found.overwritten),
              std::make_tuple(damaged.records.size(), damaged.skipped, damaged.overwritten));
}

}  // namespace
