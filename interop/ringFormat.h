// The recorder target's ring file, as its writer (targets/recorder) and its readers (vexlorctl, the
// fuzzer) share it: byte offsets, limits and the little-endian loads and stores. docs/recorder.md
// describes the same layout for readers in other languages; change both together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vexlor_ring {

// The file: a header of HEADER_SIZE bytes, then the record area (the ring) to the end.
constexpr char MAGIC[8] = {'V', 'X', 'L', 'R', 'I', 'N', 'G', '\0'};
constexpr std::uint16_t MAJOR = 1;  // a reader refuses another major version
constexpr std::uint16_t MINOR = 0;  // and reads any minor one, ignoring what it does not know
constexpr std::uint32_t HEADER_SIZE = 256;  // of this version; readers take the header's own value
// The largest file the recorder makes (size=256M), and the most a reader reads of one.
constexpr std::size_t MAX_FILE_SIZE = std::size_t{256} << 20;
constexpr std::size_t MIN_FILE_SIZE = std::size_t{16} << 10;

// Header offsets. Bytes 0-63 are written once, before the file gets its name; HEADER_CHECKSUM
// covers them. The rest changes while the process runs.
namespace header {
constexpr std::size_t MAGIC = 0;  // 8 bytes
constexpr std::size_t MAJOR = 8;  // u16
constexpr std::size_t MINOR = 10;  // u16
constexpr std::size_t HEADER_SIZE = 12;  // u32: where the record area starts
constexpr std::size_t RING_SIZE = 16;  // u32: bytes of the record area, a multiple of ALIGN
constexpr std::size_t FLAGS = 20;  // u32: 0; readers ignore bits they do not know
constexpr std::size_t PID = 24;  // i32: the writing process
constexpr std::size_t CREATED_SECONDS = 32;  // i64: creation time, seconds since the epoch
constexpr std::size_t CREATED_MICROSECONDS = 40;  // i32
constexpr std::size_t BOOT_ID = 48;  // 16 bytes: /proc/sys/kernel/random/boot_id, in its text order
constexpr std::size_t HEADER_CHECKSUM = 64;  // u32: CRC-32C of bytes 0-63
constexpr std::size_t COMMITTED = 72;  // u32: low half of the last committed sequence number (a hint)
constexpr std::size_t NAME_LENGTH = 80;  // u32: bytes of the application name, at most NAME_CAPACITY
constexpr std::size_t NAME_CHECKSUM = 84;  // u32: CRC-32C of bytes 80-83 and the name's bytes
constexpr std::size_t NAME = 88;  // the application name, no terminator
constexpr std::size_t NAME_CAPACITY = 128;
}  // namespace header

// Record offsets, from the record's start (a multiple of ALIGN into the record area). A record
// never wraps: it lies whole inside the record area, with its padding to ALIGN (zero bytes).
namespace record {
constexpr std::size_t COMMIT = 0;  // u32: COMMITTED once every other byte is in place, else not
constexpr std::size_t CHECKSUM = 4;  // u32: CRC-32C from LENGTH to the end of the padding
constexpr std::size_t LENGTH = 8;  // u32: bytes of the record, before padding to ALIGN
constexpr std::size_t FLAGS = 12;  // u32: 0; readers ignore bits they do not know
constexpr std::size_t SEQUENCE = 16;  // u64: 1 for the ring's first record, then +1 each
constexpr std::size_t SECONDS = 24;  // i64
constexpr std::size_t MICROSECONDS = 32;  // i32
constexpr std::size_t PID = 36;  // i32
constexpr std::size_t DEPTH = 40;  // i32: tracing depth
constexpr std::size_t LEVEL = 44;  // u32: level number
constexpr std::size_t THREAD_LENGTH = 48;  // u16 each: the four texts' lengths, in this order
constexpr std::size_t COMPONENT_LENGTH = 50;
constexpr std::size_t FUNCTION_LENGTH = 52;
constexpr std::size_t MESSAGE_LENGTH = 54;
constexpr std::size_t TEXT = 56;  // thread, component, function, message; no terminators
}  // namespace record

// The commit word of a whole record: its bytes 00 56 43 52. The zero byte and the zero high bytes
// of LENGTH mean no record can hide inside a text (texts hold no NUL).
constexpr std::uint32_t COMMITTED = 0x52435600;
constexpr std::size_t ALIGN = 8;
// Longer texts are cut to these lengths, so a record stays below MAX_RECORD.
constexpr std::size_t MAX_NAME_TEXT = 1023;  // thread, component, function
constexpr std::size_t MAX_MESSAGE_TEXT = 4095;
constexpr std::size_t MAX_RECORD = record::TEXT + 3 * MAX_NAME_TEXT + MAX_MESSAGE_TEXT;

constexpr std::size_t aligned(std::size_t length) { return (length + ALIGN - 1) & ~(ALIGN - 1); }

// Little-endian whatever the machine: the same file reads on armhf and x86-64.
template <typename T>
T load(const unsigned char* from)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        value |= static_cast<std::uint64_t>(from[i]) << (8 * i);
    }
    return static_cast<T>(value);  // two's complement for the signed fields
}

template <typename T>
void store(unsigned char* to, T value)
{
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    std::memcpy(to, &value, sizeof value);  // one store on the machines we build for
#else
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        to[i] = static_cast<unsigned char>(static_cast<std::uint64_t>(value) >> (8 * i));
    }
#endif
}

}  // namespace vexlor_ring
