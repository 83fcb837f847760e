// Reading a recorder ring (ringFormat.h): its header, the records it holds in order of their
// sequence numbers, and the counts a reader reports. parseRing takes bytes only (the fuzzer feeds
// it); readRingFile reads a file that its process may be writing at the same time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <vector>

using CBootId = std::array<unsigned char, 16>;

struct CRingHeader {
    unsigned major = 0;
    unsigned minor = 0;
    std::uint32_t headerSize = 0;
    std::uint32_t ringSize = 0;
    int pid = 0;
    long long createdSeconds = 0;
    int createdMicroseconds = 0;
    CBootId bootId{};
    std::string application;
    bool applicationKnown = false;  // false while a name change was under way
};

struct CRingRecord {
    std::uint64_t sequence = 0;
    long long seconds = 0;
    int microseconds = 0;
    int pid = 0;
    int depth = 0;
    unsigned level = 0;
    std::string thread;
    std::string component;
    std::string function;
    std::string message;
};

struct CRing {
    CRingHeader header;
    std::vector<CRingRecord> records;  // every intact record, oldest first
    std::uint64_t overwritten = 0;  // records before the oldest one held
    // Records that should be there but are not intact (sequence numbers missing among those
    // held, and repeated ones): torn or corrupt. Sequence numbers from oldest to newest then add
    // up: records.size() + overwritten + skipped == the newest one's.
    std::uint64_t skipped = 0;
    bool truncated = false;  // the file ends before the ring size its header gives
    bool changing = false;  // the process wrote at every attempt to read: skipped may count those
};

// False with `error` when the bytes do not start with a ring header that this reader understands.
bool parseRingHeader(const unsigned char* data, std::size_t size, CRingHeader& header, std::string& error);
// The header and every intact record of a ring file's bytes.
bool parseRing(const unsigned char* data, std::size_t size, CRing& ring, std::string& error);
// Opens the file `name` of the directory `dirFd` (AT_FDCWD: `name` is a path) for reading and
// returns its descriptor, or -1 with `error`. Whoever may write that directory chooses what is
// there, so: never through a symbolic link at the last component, without waiting (a FIFO is
// refused, not waited for), and only a regular file of at most MAX_FILE_SIZE bytes.
int openRingFile(int dirFd, const std::string& name, struct stat& status, std::string& error);
// The ring in the open file `fd`. A process that writes meanwhile is not stopped: the read is
// repeated (a few times) until the file did not change during it. Reads at most MAX_FILE_SIZE.
bool readRing(int fd, CRing& ring, std::string& error);
// Both: the file at `path`, with `path` in front of an error.
bool readRingFile(const std::string& path, CRing& ring, std::string& error);

// This boot's id (/proc/sys/kernel/random/boot_id); all zero when it cannot be read.
CBootId currentBootId();
// "f1e2d3c4-...", as the kernel writes it.
std::string bootIdText(const CBootId& id);
// Where the recorder puts its rings by default for the effective user: /run/vexlor/recorder for
// root, else $XDG_RUNTIME_DIR/vexlor/recorder, else /tmp/vexlor-<uid>/recorder.
std::string defaultRingDirectory();
