// Hex dump lines, built without printf: this runs once per 16 bytes of every dump.
#include "core/dumpLine.h"

#include <algorithm>

namespace vx {

std::size_t formatDumpLine(char* out, unsigned int offset, const unsigned char* data, unsigned int count)
{
    static const char HEX_DIGITS[] = "0123456789abcdef";
    char* p = out;
    *p++ = '0';
    *p++ = 'x';
    for (int shift = 28; shift >= 0; shift -= 4) {
        *p++ = HEX_DIGITS[(offset >> shift) & 0x0f];
    }
    p = std::copy_n(" - ", 3, p);
    for (unsigned int i = 0; i < 16; ++i) {
        if (i < count) {
            const unsigned char byte = data[offset + i];
            *p++ = HEX_DIGITS[byte >> 4];
            *p++ = HEX_DIGITS[byte & 0x0f];
            *p++ = ' ';
        } else {
            p = std::copy_n("   ", 3, p);
        }
    }
    p = std::copy_n("| ", 2, p);
    const unsigned int shown = std::min(count, 16u);
    for (unsigned int i = 0; i < shown; ++i) {
        const unsigned char byte = data[offset + i];
        // 0x7F counts as printable here, unlike isprint().
        *p++ = (byte >= 0x20 && byte <= 0x7f) ? static_cast<char>(byte) : '.';
    }
    return static_cast<std::size_t>(p - out);
}

}  // namespace vx
