// Creation, the log path's append and the renaming of one ring file. The byte layout is
// interop/ringFormat.h's; docs/recorder.md explains it.
#include "CRingFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include "CDescriptor.h"
#include "crc32c.h"
#include "ringDirectory.h"
#include "ringFormat.h"
#include "ringReader.h"

using namespace vexlor_ring;

namespace {

// The rings of this process. Changed only under the library's lock, which every fork also holds,
// so a child finds the list whole.
std::vector<CRingFile*>& liveRings()
{
    static std::vector<CRingFile*> rings;
    return rings;
}

// A commit word as one store, in the file's byte order. Release: every byte of the record is in
// place before the word says so, for a reader on another processor and for a crash alike.
void storeCommit(unsigned char* at, std::uint32_t value)
{
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    value = __builtin_bswap32(value);
#endif
    __atomic_store_n(reinterpret_cast<std::uint32_t*>(at), value, __ATOMIC_RELEASE);
}

// The slot stops being the old record before any byte of the new one is stored.
void invalidate(unsigned char* commit)
{
#ifdef __SANITIZE_THREAD__
    __atomic_store_n(reinterpret_cast<std::uint32_t*>(commit), 0, __ATOMIC_SEQ_CST);  // it models no fences
#else
    storeCommit(commit, 0);
    __atomic_thread_fence(__ATOMIC_RELEASE);
#endif
}

// A short text into the ring without a call into the C library per text (they are a few bytes
// each as a rule): whole words, the last one overlapping, nothing stored past the end.
unsigned char* putText(unsigned char* to, const char* from, std::size_t length)
{
    if (length >= 8) {
        for (std::size_t done = 0; done + 8 < length; done += 8) {
            std::memcpy(to + done, from + done, 8);
        }
        std::memcpy(to + length - 8, from + length - 8, 8);
    } else if (length >= 4) {
        std::memcpy(to, from, 4);
        std::memcpy(to + length - 4, from + length - 4, 4);
    } else {
        for (std::size_t i = 0; i < length; ++i) {
            to[i] = static_cast<unsigned char>(from[i]);
        }
    }
    return to + length;
}

}  // namespace

// A fork child never writes into its parent's ring, and must not keep its lock either: the
// parent's ring would then look alive after the parent ended.
void forgetRingsInChild()
{
    for (CRingFile* ring : liveRings()) {
        close(ring->m_fd);
        munmap(ring->m_map, ring->m_size);
        ring->m_fd = -1;
        ring->m_map = nullptr;
    }
    liveRings().clear();
}

namespace {
// Registered when the plug-in loads; dlclose unregisters it with the plug-in.
const bool g_forkHandler = pthread_atfork(nullptr, nullptr, &forgetRingsInChild) == 0;
}  // namespace

CRingError::CRingError(const std::string& what, int error)
    : std::runtime_error(what + ": " + std::strerror(error))
    , m_error(error)
{
}

CRingFile::CRingFile(int dirFd, const std::string& dir, const std::string& name, const std::string& application,
                     std::size_t size)
    : m_size(size)
    , m_areaSize(size - HEADER_SIZE)
    , m_dir(dir)
    , m_name(name)
{
    (void)g_forkHandler;
    const std::string path = dir + "/" + name;
    if (ringState(dirFd, name) == ERingState::alive) {
        throw CRingError(path + " belongs to another recorder target of this process (give this one another dir=)",
                         EBUSY);
    }
    // Made under a temporary name and renamed when complete: a reader never sees half a header.
    const std::string temporary = "." + name + ".creating";
    unlinkat(dirFd, temporary.c_str(), 0);  // what a crash of an earlier process with this pid left
    CDescriptor fd(openat(dirFd, temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (fd.get() < 0) {
        throw CRingError("cannot create " + dir + "/" + temporary, errno);
    }
    int error = fchmod(fd.get(), 0600) == 0 && flock(fd.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
    // Every block now: a full file system refuses here, never with a SIGBUS on the log path.
    error = error != 0 ? error : posix_fallocate(fd.get(), 0, static_cast<off_t>(size));
    void* map =
        error != 0 ? MAP_FAILED : mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd.get(), 0);
    error = error != 0 ? error : map == MAP_FAILED ? errno : 0;
    if (error != 0) {
        unlinkat(dirFd, temporary.c_str(), 0);
        throw CRingError("cannot allocate " + std::to_string(size) + " bytes for " + path, error);
    }
    m_map = static_cast<unsigned char*>(map);
    m_area = m_map + HEADER_SIZE;
    timeval now{};
    gettimeofday(&now, nullptr);
    const CBootId boot = currentBootId();
    std::memcpy(m_map + header::MAGIC, MAGIC, sizeof MAGIC);
    store<std::uint16_t>(m_map + header::MAJOR, MAJOR);
    store<std::uint16_t>(m_map + header::MINOR, MINOR);
    store<std::uint32_t>(m_map + header::HEADER_SIZE, HEADER_SIZE);
    store<std::uint32_t>(m_map + header::RING_SIZE, static_cast<std::uint32_t>(m_areaSize));
    store<std::int32_t>(m_map + header::PID, getpid());
    store<std::int64_t>(m_map + header::CREATED_SECONDS, now.tv_sec);
    store<std::int32_t>(m_map + header::CREATED_MICROSECONDS, static_cast<std::int32_t>(now.tv_usec));
    std::memcpy(m_map + header::BOOT_ID, boot.data(), boot.size());
    store<std::uint32_t>(m_map + header::HEADER_CHECKSUM, crc32c(m_map, header::HEADER_CHECKSUM));
    writeName(application);
    if (ringState(dirFd, name) != ERingState::missing) {
        moveAside(dirFd, name);  // an ended process's ring: left for vexlorctl and keep=
    }
    if (renameat(dirFd, temporary.c_str(), dirFd, name.c_str()) != 0) {
        error = errno;
        munmap(m_map, m_size);
        unlinkat(dirFd, temporary.c_str(), 0);
        throw CRingError("cannot name the ring " + path, error);
    }
    m_fd = fd.release();
    liveRings().push_back(this);
}

CRingFile::~CRingFile()
{
    auto& rings = liveRings();
    rings.erase(std::remove(rings.begin(), rings.end(), this), rings.end());
    if (m_map != nullptr) {
        munmap(m_map, m_size);
        close(m_fd);
    }
}

void CRingFile::append(int pid, int depth, long long seconds, int microseconds, unsigned level,
                       const std::string& thread, const std::string& component, const std::string& function,
                       const std::string& message)
{
    const std::size_t threadLength = std::min(thread.size(), MAX_NAME_TEXT);
    const std::size_t componentLength = std::min(component.size(), MAX_NAME_TEXT);
    const std::size_t functionLength = std::min(function.size(), MAX_NAME_TEXT);
    const std::size_t messageLength = std::min(message.size(), MAX_MESSAGE_TEXT);
    const std::size_t length = record::TEXT + threadLength + componentLength + functionLength + messageLength;
    const std::size_t span = aligned(length);
    if (m_head + span > m_areaSize) {
        // The end of the area is cleared before the next lap: records of an earlier lap there
        // would outlive the ones this lap overwrites first, a gap a reader must take for corruption.
        std::memset(m_area + m_head, 0, m_areaSize - m_head);
        m_head = 0;
    }
    unsigned char* const at = m_area + m_head;
    invalidate(at + record::COMMIT);
    store<std::uint64_t>(at + span - 8, 0);  // the padding; the texts cover the rest of this word
    store<std::uint32_t>(at + record::LENGTH, static_cast<std::uint32_t>(length));
    store<std::uint32_t>(at + record::FLAGS, 0);
    store<std::uint64_t>(at + record::SEQUENCE, m_nextSequence);
    store<std::int64_t>(at + record::SECONDS, seconds);
    store<std::int32_t>(at + record::MICROSECONDS, microseconds);
    store<std::int32_t>(at + record::PID, pid);
    store<std::int32_t>(at + record::DEPTH, depth);
    store<std::uint32_t>(at + record::LEVEL, level);
    store<std::uint16_t>(at + record::THREAD_LENGTH, static_cast<std::uint16_t>(threadLength));
    store<std::uint16_t>(at + record::COMPONENT_LENGTH, static_cast<std::uint16_t>(componentLength));
    store<std::uint16_t>(at + record::FUNCTION_LENGTH, static_cast<std::uint16_t>(functionLength));
    store<std::uint16_t>(at + record::MESSAGE_LENGTH, static_cast<std::uint16_t>(messageLength));
    unsigned char* text = putText(at + record::TEXT, thread.data(), threadLength);
    text = putText(text, component.data(), componentLength);
    text = putText(text, function.data(), functionLength);
    putText(text, message.data(), messageLength);
    store<std::uint32_t>(at + record::CHECKSUM, crc32c(at + record::LENGTH, span - record::LENGTH));
    storeCommit(at + record::COMMIT, COMMITTED);
    // For readers of a live ring only: it tells them the ring moved while they read.
    __atomic_store_n(reinterpret_cast<std::uint32_t*>(m_map + header::COMMITTED),
                     static_cast<std::uint32_t>(m_nextSequence), __ATOMIC_RELAXED);
    m_head += span;
    ++m_nextSequence;
    // The next record's lines into the cache now, not when its stores wait for them.
    __builtin_prefetch(m_area + m_head, 1);
    __builtin_prefetch(m_area + m_head + 64, 1);
}

void CRingFile::writeName(const std::string& application)
{
    const std::size_t length = std::min(application.size(), header::NAME_CAPACITY);
    store<std::uint32_t>(m_map + header::NAME_LENGTH, static_cast<std::uint32_t>(length));
    std::memcpy(m_map + header::NAME, application.data(), length);
    store<std::uint32_t>(m_map + header::NAME_CHECKSUM,
                         crc32c(m_map + header::NAME, length, crc32c(m_map + header::NAME_LENGTH, 4)));
}

int CRingFile::rename(int dirFd, const std::string& name, const std::string& application)
{
    writeName(application);
    if (name == m_name) {
        return 0;
    }
    const ERingState state = ringState(dirFd, name);
    if (state == ERingState::alive) {
        return EBUSY;  // another recorder target of this process writes there
    }
    if (state == ERingState::ended) {
        moveAside(dirFd, name);
    }
    if (renameat(dirFd, m_name.c_str(), dirFd, name.c_str()) != 0) {
        return errno;
    }
    m_name = name;
    return 0;
}

void CRingFile::remove(int dirFd) { unlinkat(dirFd, m_name.c_str(), 0); }
