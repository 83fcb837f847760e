// Decimal number reading with the results of strtol on a platform whose long has 32 bits, so that
// x86-64 and 32-bit ARM read every configuration number alike.
#pragma once

#include <cstdint>

namespace vx {

// Skips leading white space, reads an optional sign and decimal digits, saturates to the signed
// 32-bit range. Without digits the result is 0 and *end (if given) is `text`.
std::int32_t strtol32(const char* text, const char** end = nullptr);

}  // namespace vx
