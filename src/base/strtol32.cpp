// 32-bit strtol semantics (see strtol32.h).
#include "base/strtol32.h"

#include <limits>

namespace vx {

namespace {

bool isCSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

std::int32_t strtol32(const char* text, const char** end)
{
    const char* p = text;
    while (isCSpace(*p)) {
        ++p;
    }
    const bool negative = *p == '-';
    if (*p == '+' || *p == '-') {
        ++p;
    }
    // Accumulate the magnitude in 64 bits and stop growing once past the 32-bit range.
    const std::int64_t limit = negative ? -static_cast<std::int64_t>(std::numeric_limits<std::int32_t>::min())
                                        : std::numeric_limits<std::int32_t>::max();
    std::int64_t magnitude = 0;
    const char* digits = p;
    while (*p >= '0' && *p <= '9') {
        if (magnitude <= limit) {
            magnitude = magnitude * 10 + (*p - '0');
        }
        ++p;
    }
    if (p == digits) {
        if (end != nullptr) {
            *end = text;
        }
        return 0;
    }
    if (end != nullptr) {
        *end = p;
    }
    if (magnitude > limit) {
        magnitude = limit;
    }
    return static_cast<std::int32_t>(negative ? -magnitude : magnitude);
}

}  // namespace vx
