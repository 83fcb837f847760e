// libFuzzer target for the recorder's ring reader (vexlorctl dump): the input as a whole ring file,
// and again as the record area behind a well-formed header with each committed record's checksum
// put right, so that mutations reach the ordering and counting behind both checks.
#include <cstdint>
#include <cstring>
#include <string>

#include "crc32c.h"
#include "ringFormat.h"
#include "ringReader.h"

using namespace vexlor_ring;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CRing ring;
    std::string error;
    parseRing(data, size, ring, error);

    const std::size_t area = size & ~(ALIGN - 1);
    std::string file(HEADER_SIZE, '\0');
    file.append(reinterpret_cast<const char*>(data), area);
    auto* bytes = reinterpret_cast<unsigned char*>(&file[0]);
    std::memcpy(bytes, MAGIC, sizeof MAGIC);
    store<std::uint16_t>(bytes + header::MAJOR, MAJOR);
    store<std::uint32_t>(bytes + header::HEADER_SIZE, HEADER_SIZE);
    store<std::uint32_t>(bytes + header::RING_SIZE, static_cast<std::uint32_t>(area));
    store<std::uint32_t>(bytes + header::HEADER_CHECKSUM, crc32c(bytes, header::HEADER_CHECKSUM));
    for (std::size_t at = HEADER_SIZE; at + record::TEXT <= file.size(); at += ALIGN) {
        unsigned char* slot = bytes + at;
        const std::size_t span = aligned(load<std::uint32_t>(slot + record::LENGTH));
        if (load<std::uint32_t>(slot) == COMMITTED && span >= record::TEXT && span <= file.size() - at) {
            store<std::uint32_t>(slot + record::CHECKSUM, crc32c(slot + record::LENGTH, span - record::LENGTH));
        }
    }
    parseRing(bytes, file.size(), ring, error);
    return 0;
}
