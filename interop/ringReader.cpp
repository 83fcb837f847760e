// Reading a ring: the header is checked whole, then the record area is scanned at every aligned
// offset, because after a crash or a wrap nothing says where the oldest intact record begins.
#include "ringReader.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include "crc32c.h"
#include "ringFormat.h"

using namespace vexlor_ring;

namespace {

constexpr int READ_ATTEMPTS = 4;

std::uint32_t u32(const unsigned char* p) { return load<std::uint32_t>(p); }
std::uint16_t u16(const unsigned char* p) { return load<std::uint16_t>(p); }

// The record at `p`, with `room` bytes to the end of the record area; false unless it is
// committed and intact.
bool parseRecord(const unsigned char* p, std::size_t room, CRingRecord& out, std::size_t& length)
{
    if (room < record::TEXT || u32(p + record::COMMIT) != COMMITTED) {
        return false;
    }
    length = u32(p + record::LENGTH);
    const std::size_t thread = u16(p + record::THREAD_LENGTH);
    const std::size_t component = u16(p + record::COMPONENT_LENGTH);
    const std::size_t function = u16(p + record::FUNCTION_LENGTH);
    const std::size_t message = u16(p + record::MESSAGE_LENGTH);
    // A later minor version may append fields after the texts: the length covers them.
    if (length > MAX_RECORD || aligned(length) > room || thread > MAX_NAME_TEXT || component > MAX_NAME_TEXT ||
        function > MAX_NAME_TEXT || message > MAX_MESSAGE_TEXT ||
        record::TEXT + thread + component + function + message > length ||
        crc32c(p + record::LENGTH, aligned(length) - record::LENGTH) != u32(p + record::CHECKSUM)) {
        return false;
    }
    out.sequence = load<std::uint64_t>(p + record::SEQUENCE);
    out.seconds = load<std::int64_t>(p + record::SECONDS);
    out.microseconds = load<std::int32_t>(p + record::MICROSECONDS);
    out.pid = load<std::int32_t>(p + record::PID);
    out.depth = load<std::int32_t>(p + record::DEPTH);
    out.level = u32(p + record::LEVEL);
    const char* text = reinterpret_cast<const char*>(p + record::TEXT);
    out.thread.assign(text, thread);
    out.component.assign(text + thread, component);
    out.function.assign(text + thread + component, function);
    out.message.assign(text + thread + component + function, message);
    return true;
}

// Oldest first. A sequence number found twice is corrupt, and so is a missing one between the
// oldest and the newest (numbers start at 1: a 0 is corrupt too).
void order(CRing& ring)
{
    auto& records = ring.records;
    const std::size_t found = records.size();
    records.erase(std::remove_if(records.begin(), records.end(), [](const CRingRecord& r) { return r.sequence == 0; }),
                  records.end());
    std::sort(records.begin(), records.end(),
              [](const CRingRecord& a, const CRingRecord& b) { return a.sequence < b.sequence; });
    records.erase(std::unique(records.begin(), records.end(),
                              [](const CRingRecord& a, const CRingRecord& b) { return a.sequence == b.sequence; }),
                  records.end());
    ring.skipped = found - records.size();
    if (!records.empty()) {
        ring.overwritten = records.front().sequence - 1;
        ring.skipped += records.back().sequence - records.front().sequence + 1 - records.size();
    }
}

bool readAll(int fd, std::string& bytes)
{
    struct stat status { };
    if (fstat(fd, &status) != 0) {
        return false;
    }
    // The size as it is now: a file that grows meanwhile is read no further.
    bytes.resize(std::min(static_cast<std::size_t>(status.st_size), MAX_FILE_SIZE));
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = pread(fd, &bytes[done], bytes.size() - done, static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    bytes.resize(done);
    return true;
}

// The writer's hint of its last commit; it moves with every record written.
std::uint32_t committedHint(int fd)
{
    unsigned char word[4] = {};
    return pread(fd, word, sizeof word, header::COMMITTED) == sizeof word ? u32(word) : 0;
}

int hexDigit(char c)
{
    return c >= '0' && c <= '9' ? c - '0'
        : c >= 'a' && c <= 'f'  ? c - 'a' + 10
        : c >= 'A' && c <= 'F'  ? c - 'A' + 10
                                : -1;
}

}  // namespace

bool parseRingHeader(const unsigned char* data, std::size_t size, CRingHeader& out, std::string& error)
{
    if (size < HEADER_SIZE || std::memcmp(data, MAGIC, sizeof MAGIC) != 0) {
        error = "not a ring file of the recorder target";
        return false;
    }
    out.major = u16(data + header::MAJOR);
    out.minor = u16(data + header::MINOR);
    if (out.major != MAJOR) {
        error = "ring format version " + std::to_string(out.major) + "." + std::to_string(out.minor) +
            ": this reader knows version " + std::to_string(MAJOR) + ".x only";
        return false;
    }
    if (crc32c(data, header::HEADER_CHECKSUM) != u32(data + header::HEADER_CHECKSUM)) {
        error = "the ring's header is damaged (checksum)";
        return false;
    }
    out.headerSize = u32(data + header::HEADER_SIZE);
    out.ringSize = u32(data + header::RING_SIZE);
    if (out.headerSize < HEADER_SIZE || out.headerSize % ALIGN != 0 || out.ringSize % ALIGN != 0) {
        error = "the ring's header gives impossible sizes";
        return false;
    }
    out.pid = load<std::int32_t>(data + header::PID);
    out.createdSeconds = load<std::int64_t>(data + header::CREATED_SECONDS);
    out.createdMicroseconds = load<std::int32_t>(data + header::CREATED_MICROSECONDS);
    std::memcpy(out.bootId.data(), data + header::BOOT_ID, out.bootId.size());
    const std::uint32_t nameLength = u32(data + header::NAME_LENGTH);
    out.applicationKnown = nameLength <= header::NAME_CAPACITY &&
        crc32c(data + header::NAME, nameLength, crc32c(data + header::NAME_LENGTH, 4)) ==
            u32(data + header::NAME_CHECKSUM);
    out.application.assign(reinterpret_cast<const char*>(data + header::NAME), out.applicationKnown ? nameLength : 0);
    return true;
}

bool parseRing(const unsigned char* data, std::size_t size, CRing& ring, std::string& error)
{
    ring = CRing();
    if (!parseRingHeader(data, size, ring.header, error)) {
        return false;
    }
    if (ring.header.headerSize > size) {
        error = "the ring file ends inside its header";
        return false;
    }
    const std::size_t available = size - ring.header.headerSize;
    ring.truncated = available < ring.header.ringSize;
    const std::size_t area = std::min<std::size_t>(available, ring.header.ringSize);
    const unsigned char* start = data + ring.header.headerSize;
    CRingRecord record;
    for (std::size_t offset = 0; offset + record::TEXT <= area;) {
        std::size_t length = 0;
        if (parseRecord(start + offset, area - offset, record, length)) {
            ring.records.push_back(record);
            offset += aligned(length);
        } else {
            offset += ALIGN;
        }
    }
    order(ring);
    return true;
}

int openRingFile(int dirFd, const std::string& name, struct stat& status, std::string& error)
{
    const int fd = openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        error = errno == ELOOP ? "is a symbolic link, which is not followed" : std::strerror(errno);
        return -1;
    }
    if (fstat(fd, &status) != 0) {
        error = std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
        error = "not a regular file";
    } else if (static_cast<unsigned long long>(status.st_size) > MAX_FILE_SIZE) {
        error = std::to_string(status.st_size) + " bytes, more than any ring has (" + std::to_string(MAX_FILE_SIZE) +
            " at most)";
    } else {
        return fd;
    }
    close(fd);
    return -1;
}

bool readRing(int fd, CRing& ring, std::string& error)
{
    std::string bytes;
    bool ok = false;
    bool unchanged = false;
    for (int attempt = 0; attempt < READ_ATTEMPTS && !unchanged; ++attempt) {
        const std::uint32_t before = committedHint(fd);
        if (!readAll(fd, bytes)) {
            error = std::strerror(errno);
            break;
        }
        unchanged = committedHint(fd) == before;
        ok = parseRing(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), ring, error);
        if (!ok) {
            break;
        }
        // Gaps while the writer moved are records overwritten during the copy: read again.
        unchanged = unchanged || ring.skipped == 0;
    }
    ring.changing = ok && !unchanged;
    return ok;
}

bool readRingFile(const std::string& path, CRing& ring, std::string& error)
{
    struct stat status { };
    const int fd = openRingFile(AT_FDCWD, path, status, error);
    const bool ok = fd >= 0 && readRing(fd, ring, error);
    if (fd >= 0) {
        close(fd);
    }
    if (!ok) {
        error = path + ": " + error;
    }
    return ok;
}

CBootId currentBootId()
{
    CBootId id{};
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::string text;
    std::getline(file, text);
    std::size_t n = 0;
    for (std::size_t i = 0; i + 1 < text.size() && n < id.size(); ++i) {
        const int high = hexDigit(text[i]);
        const int low = hexDigit(text[i + 1]);
        if (high >= 0 && low >= 0) {
            id[n++] = static_cast<unsigned char>(high << 4 | low);
            ++i;
        }
    }
    return n == id.size() ? id : CBootId{};
}

std::string bootIdText(const CBootId& id)
{
    static const char DIGITS[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < id.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += DIGITS[id[i] >> 4];
        text += DIGITS[id[i] & 15];
    }
    return text;
}

std::string defaultRingDirectory()
{
    if (geteuid() == 0) {
        return "/run/vexlor/recorder";
    }
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && runtime[0] == '/') {
        return std::string(runtime) + "/vexlor/recorder";
    }
    return "/tmp/vexlor-" + std::to_string(geteuid()) + "/recorder";
}
