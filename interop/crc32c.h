// CRC-32C (Castagnoli; initial value and final xor 0xffffffff, as iSCSI and most libraries compute
// it): the checksum of the recorder's ring records.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vexlor_ring {

// The checksum of `length` bytes; pass a previous result as `crc` to continue over further bytes.
std::uint32_t crc32c(const void* data, std::size_t length, std::uint32_t crc = 0);

}  // namespace vexlor_ring
