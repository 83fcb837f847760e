// CRC-32C: the processor's instruction on x86-64 where it has one (about ten times the speed, and
// this runs once per recorded record), eight bytes per step from tables elsewhere.
#include "crc32c.h"

#include <array>
#include <cstring>

#if defined(__x86_64__) && !defined(VEXLOR_PORTABLE)
#include <nmmintrin.h>
#define VEXLOR_CRC32C_SSE42 1
#endif

namespace vexlor_ring {
namespace {

constexpr std::uint32_t POLYNOMIAL = 0x82f63b78;  // reflected

using CTables = std::array<std::array<std::uint32_t, 256>, 8>;

constexpr CTables makeTables()
{
    CTables tables{};
    for (std::uint32_t n = 0; n < 256; ++n) {
        std::uint32_t crc = n;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ (POLYNOMIAL & (0u - (crc & 1u)));
        }
        tables[0][n] = crc;
    }
    for (std::size_t t = 1; t < 8; ++t) {
        for (std::size_t n = 0; n < 256; ++n) {
            tables[t][n] = (tables[t - 1][n] >> 8) ^ tables[0][tables[t - 1][n] & 0xff];
        }
    }
    return tables;
}

constexpr CTables TABLES = makeTables();

// Slicing by eight; the words are read little-endian, which is what the tables expect.
std::uint32_t crcTables(const unsigned char* p, std::size_t length, std::uint32_t crc)
{
    for (; length >= 8; p += 8, length -= 8) {
        const std::uint32_t low = crc ^ (p[0] | p[1] << 8 | p[2] << 16 | static_cast<std::uint32_t>(p[3]) << 24);
        crc = TABLES[7][low & 0xff] ^ TABLES[6][low >> 8 & 0xff] ^ TABLES[5][low >> 16 & 0xff] ^ TABLES[4][low >> 24] ^
            TABLES[3][p[4]] ^ TABLES[2][p[5]] ^ TABLES[1][p[6]] ^ TABLES[0][p[7]];
    }
    for (; length > 0; ++p, --length) {
        crc = (crc >> 8) ^ TABLES[0][(crc ^ *p) & 0xff];
    }
    return crc;
}

#ifdef VEXLOR_CRC32C_SSE42
__attribute__((target("sse4.2"))) std::uint32_t crcInstruction(const unsigned char* p, std::size_t length,
                                                               std::uint32_t crc)
{
    std::uint64_t wide = crc;
    for (; length >= 8; p += 8, length -= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        wide = _mm_crc32_u64(wide, word);
    }
    crc = static_cast<std::uint32_t>(wide);
    for (; length > 0; ++p, --length) {
        crc = _mm_crc32_u8(crc, *p);
    }
    return crc;
}

using CCrcFunction = std::uint32_t (*)(const unsigned char*, std::size_t, std::uint32_t);

CCrcFunction chooseCrc()
{
    __builtin_cpu_init();  // this may run before the compiler's own start-up code asked the processor
    return __builtin_cpu_supports("sse4.2") ? crcInstruction : crcTables;
}

const CCrcFunction CRC = chooseCrc();
#else
constexpr auto CRC = crcTables;
#endif

}  // namespace

std::uint32_t crc32c(const void* data, std::size_t length, std::uint32_t crc)
{
    return ~CRC(static_cast<const unsigned char*>(data), length, ~crc);
}

}  // namespace vexlor_ring
