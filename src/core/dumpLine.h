// One line of a hex dump: "0x<offset> - <16 hex columns>| <characters>".
#pragma once

#include <cstddef>

namespace vx {

// Longest line: "0x" + 8 digits, " - ", 16 columns of 3, "| ", 16 characters.
constexpr std::size_t DUMP_LINE_SIZE = 10 + 3 + 16 * 3 + 2 + 16;

// Writes the line for the `count` bytes from data[offset] (at most 16 shown) into `out`, which
// has room for DUMP_LINE_SIZE characters; returns its length. No terminating zero.
std::size_t formatDumpLine(char* out, unsigned int offset, const unsigned char* data, unsigned int count);

}  // namespace vx
