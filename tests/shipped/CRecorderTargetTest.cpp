// The recorder target through the container, its rings read back with vexlorctl's reader: what a
// record keeps, a ring smaller than what is logged, a full file system, fork children, keep=,
// rings of earlier processes and boots, and one ring format on every architecture.
#include <set>
#include <syslog.h>
#include <tuple>

#include "CPrivateMounts.h"
#include "CTargetFixture.h"
#include "crc32c.h"
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
    std::set<std::string> files() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_rings)) {
            names.insert(entry.path().filename());
        }
        return names;
    }
    // A ring of this program made and left by a fork child, as a crashed process leaves it.
    void endedRing(int records)
    {
        EXPECT_EQ(0, runInChild([&] {
                      load(", keep=10");
                      for (int i = 0; i < records; ++i) {
                          log(VX_INFO, "child");
                      }
                      return 0;
                  }));
    }

    const std::string m_rings = m_dir.file("rings");
};

TEST_F(CRecorderTargetTest, KeepsEveryValueOfTheRecordsItsLevelsTake)
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
    read("");  // unloaded: the ring stays
    EXPECT_EQ(2u, ringOf(own()).records.size());
}

TEST_F(CRecorderTargetTest, HoldsExactlyTheNewestRecordsThatFit)
{
    load("");
    for (int i = 0; i < 1000; ++i) {
        log(VX_INFO, "record " + std::to_string(1000 + i));  // 74 bytes each, 80 with padding
    }
    const CRing found = ringOf(own());
    const std::size_t fit = (16384 - ring::HEADER_SIZE) / 80;
    ASSERT_EQ(fit, found.records.size());
    EXPECT_EQ(
        std::make_tuple(1000u - fit, 0ull, 1000ull, std::string("record 1999")),
        std::make_tuple(found.overwritten, found.skipped, found.records.back().sequence, found.records.back().message));
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
    EXPECT_TRUE(files().empty());  // nothing half made left behind
}

TEST_F(CRecorderTargetTest, ForkChildWritesARingOfItsOwn)
{
    load("");
    log(VX_INFO, "parent 1");
    EXPECT_EQ(0, runInChild([&] {
                  log(VX_INFO, "child 1");
                  log(VX_INFO, "child 2");
                  return 0;
              }));
    log(VX_INFO, "parent 2");
    std::set<std::string> names = files();
    ASSERT_EQ(1u, names.erase(own()));
    ASSERT_EQ(1u, names.size());
    const CRing parent = ringOf(own());
    const CRing forked = ringOf(*names.begin());
    ASSERT_EQ(std::make_tuple(2u, 2u), std::make_tuple(parent.records.size(), forked.records.size()));
    EXPECT_EQ("parent 2", parent.records[1].message);
    EXPECT_EQ(std::make_tuple(own(forked.header.pid), 2ull, std::string("child 2")),
              std::make_tuple(*names.begin(), forked.records[1].sequence, forked.records[1].message));
}

// keep=3: the new ring, a live one of another process with the same name, and the newest ended
// one stay; older ended ones go.
TEST_F(CRecorderTargetTest, KeepPrunesOnlyTheOldestRingsOfEndedProcesses)
{
    endedRing(1);
    endedRing(2);
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    const pid_t live = fork();
    if (live == 0) {
        load(", keep=10");
        _exit(write(ready[1], "r", 1) == 1 && pause() ? 0 : 1);  // lives until killed
    }
    char c;
    ASSERT_EQ(1, ::read(ready[0], &c, 1));
    endedRing(3);
    EXPECT_EQ(4u, files().size());
    load(", keep=3");
    std::set<std::string> left;
    for (const std::string& name : files()) {
        const CRing found = ringOf(name);
        left.insert(name == own() ? "new" : found.header.pid == live ? "live" : std::to_string(found.records.size()));
    }
    EXPECT_EQ(std::set<std::string>({"new", "live", "3"}), left);
    kill(live, SIGKILL);
    waitpid(live, nullptr, 0);
}

// A file of this pid from an earlier boot (on flash, pids repeat) is kept under another name.
TEST_F(CRecorderTargetTest, KeepsARingOfTheSamePidFromAnEarlierBoot)
{
    endedRing(5);
    const std::string earlier = m_rings + "/" + *files().begin();
    std::string bytes = readFile(earlier);
    auto* header = reinterpret_cast<unsigned char*>(&bytes[0]);
    header[ring::header::BOOT_ID] ^= 1;
    ring::store<std::int32_t>(header + ring::header::PID, getpid());
    ring::store<std::uint32_t>(header + ring::header::HEADER_CHECKSUM,
                               ring::crc32c(header, ring::header::HEADER_CHECKSUM));
    writeFile(m_rings + "/" + own(), bytes);
    std::filesystem::remove(earlier);
    load("");
    const CRing kept = ringOf(own().substr(0, own().size() - 5) + ".1.ring");
    EXPECT_TRUE(kept.header.bootId != currentBootId() && kept.records.size() == 5u);
    EXPECT_TRUE(ringOf(own()).records.empty());
}

TEST_F(CRecorderTargetTest, RefusesBadParametersAndOtherUsersDirectories)
{
    std::filesystem::create_directory(m_dir.file("theirs"));
    ASSERT_EQ(0, chown(m_dir.file("theirs").c_str(), 65534, 65534));
    for (const std::string& parameters :
         std::vector<std::string>{", size=8K", ", size=1G", ", keep=0", ", remove-on-unload=yes", ", dir=relative",
                                  ", dir=" + m_dir.file("theirs")}) {
        m_syslog.clear();
        read("target = " VEXLOR_TEST_TARGET_RECORDER + parameters + ", dir=" + m_rings + "\n");  // the first wins
        EXPECT_EQ(1, m_syslog.countStarting("recorder target \"recorder\": ", LOG_ERR)) << parameters;
    }
    load(", remove-on-unload=1");
    log(VX_INFO, "gone with the target");
    read("");
    EXPECT_TRUE(files().empty());
}

// The record bytes are the same whatever the machine that writes them: this ring was written by
// this test on armhf (under qemu), and every build writes it again byte for byte (vexlorctl reads
// it in recorderCrashTest).
TEST_F(CRecorderTargetTest, WritesTheSameBytesOnEveryArchitecture)
{
    load(", application-name=golden");
    for (int i = 0; i < 1000; ++i) {  // records of many sizes: each lap ends at another place
        m_container.log(4242, i % 4, SECONDS + i, i * 1000, i % 3 == 0 ? VX_ERR : VX_DEBUG,
                        "thread " + std::to_string(i % 2), "net", i % 4 ? "poll" : "",
                        "message " + std::to_string(i) + std::string(i % 25 == 24 ? 500 : i * 7 % 13, '.'));
    }
    const std::string expected = readFile(VEXLOR_TEST_SOURCE_DIR "/data/recorder-armhf.ring");
    const std::string actual = readFile(m_rings + "/golden." + std::to_string(getpid()) + ".ring");
    ASSERT_EQ(16384u, expected.size());
    EXPECT_TRUE(expected.compare(ring::HEADER_SIZE, std::string::npos, actual, ring::HEADER_SIZE) == 0);
}

}  // namespace
