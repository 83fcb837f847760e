// Escaping for the terminal. Unlike the targets' escaping of record fields (control bytes only),
// this also takes C1 controls and broken UTF-8: a terminal may read a lone 0x9b as CSI.
#include "terminalText.h"

#include <cstdio>

std::size_t sequenceLength(const std::string& text, std::size_t i)
{
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(i);
    if (lead >= 0x20 && lead < 0x7f) {
        return 1;
    }
    const std::size_t length = lead >= 0xc2 && lead <= 0xdf ? 2
        : lead >= 0xe0 && lead <= 0xef                      ? 3
        : lead >= 0xf0 && lead <= 0xf4                      ? 4
                                                            : 0;
    if (length == 0 || i + length > text.size()) {
        return 0;
    }
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const unsigned char second = byte(i + 1);
    const bool c1 = lead == 0xc2 && second < 0xa0;
    const bool overlong = (lead == 0xe0 && second < 0xa0) || (lead == 0xf0 && second < 0x90);
    const bool surrogate = lead == 0xed && second >= 0xa0;
    const bool beyond = lead == 0xf4 && second >= 0x90;  // past U+10FFFF
    return c1 || overlong || surrogate || beyond ? 0 : length;
}

std::string printable(const std::string& text)
{
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = sequenceLength(text, i);
        if (length != 0) {
            shown.append(text, i, length);
            i += length;
            continue;
        }
        const unsigned char c = static_cast<unsigned char>(text[i++]);
        if (c == '\n' || c == '\r' || c == '\t') {
            shown += c == '\n' ? "\\n" : c == '\r' ? "\\r" : "\\t";
        } else {
            char escape[5];
            std::snprintf(escape, sizeof escape, "\\x%02x", c);
            shown += escape;
        }
    }
    return shown;
}
