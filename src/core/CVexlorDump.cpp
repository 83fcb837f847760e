// Hex dumps: one record per 16 bytes, each "0x<offset> - <hex columns>| <characters>".
#include <algorithm>
#include <cstdio>

#include "core/CVexlor.h"
#include "levels/componentLevel.h"

namespace {

constexpr unsigned int BYTES_PER_LINE = 16;
// "0x" + 8 digits, " - ", 16 hex columns of 3, "| ", 16 characters.
constexpr std::size_t FULL_LINE_LENGTH = 10 + 3 + BYTES_PER_LINE * 3 + 2 + BYTES_PER_LINE;

}  // namespace

void CVexlor::dump(vexlor_component* component, vexlor_level* level, const void* data, unsigned int length)
{
    // Filter once, before any line is formatted.
    if (!vx::isEnabled(component, level)) {
        return;
    }
    if (data == nullptr) {
        vexlor(component, level, "<NULL>");
        return;
    }
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::string line;
    const unsigned int full = length / BYTES_PER_LINE;
    for (unsigned int i = 0; i < full; ++i) {
        formatDumpLine(line, i * BYTES_PER_LINE, bytes, BYTES_PER_LINE);
        vexlor(component, level, "%s", line.c_str());
    }
    const unsigned int rest = length - full * BYTES_PER_LINE;
    if (rest != 0) {
        formatDumpLine(line, full * BYTES_PER_LINE, bytes, rest);
        vexlor(component, level, "%s", line.c_str());
    }
}

void CVexlor::formatDumpLine(std::string& line, unsigned int offset, const unsigned char* data, unsigned int count)
{
    static const char HEX_DIGITS[] = "0123456789abcdef";
    char offsetText[256];
    const int offsetLength = snprintf(offsetText, sizeof offsetText, "0x%08x", offset);
    // Composed in a stack buffer and assigned once: the reused line keeps its capacity.
    char text[FULL_LINE_LENGTH];
    char* out = std::copy(offsetText, offsetText + offsetLength, text);
    out = std::copy_n(" - ", 3, out);
    for (unsigned int i = 0; i < BYTES_PER_LINE; ++i) {
        if (i < count) {
            const unsigned char byte = data[offset + i];
            *out++ = HEX_DIGITS[byte >> 4];
            *out++ = HEX_DIGITS[byte & 0x0f];
            *out++ = ' ';
        } else {
            out = std::copy_n("   ", 3, out);
        }
    }
    out = std::copy_n("| ", 2, out);
    const unsigned int shown = count < BYTES_PER_LINE ? count : BYTES_PER_LINE;
    for (unsigned int i = 0; i < shown; ++i) {
        const unsigned char byte = data[offset + i];
        // 0x7F counts as printable here, unlike isprint().
        *out++ = (byte >= 0x20 && byte <= 0x7f) ? static_cast<char>(byte) : '.';
    }
    line.assign(text, static_cast<std::size_t>(out - text));
}
