// Level masks in the three forms an operator knows: hex, the configuration's bit strings, and
// the level names that the targets' levels= parameter takes.
#include "levelText.h"

#include <cstdlib>
#include <stdexcept>

#include "CLevelSet.h"

namespace {

constexpr unsigned int BITS = 32;

bool isHex(const std::string& text)
{
    return text.size() > 2 && text.size() <= 10 && (text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0) &&
        text.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos;
}

bool isBitString(const std::string& text)
{
    return text.find_first_of("01") != std::string::npos && text.find_first_not_of("01 \t") == std::string::npos;
}

// As the configuration reads it: highest level first, only the last 32 characters count.
unsigned int bitStringMask(const std::string& text)
{
    unsigned int mask = 0;
    for (const char c : text) {
        if (c == '0' || c == '1') {
            mask = (mask << 1) | (c == '1' ? 1u : 0u);
        }
    }
    return mask;
}

unsigned int levelSetMask(const CLevelSet& set)
{
    unsigned int mask = 0;
    for (unsigned int n = 0; n < BITS; ++n) {
        const vexlor_level level{n, 1u << n};
        if (set.contains(&level)) {
            mask |= level.mask;
        }
    }
    return mask;
}

}  // namespace

bool parseLevels(const std::string& text, unsigned int& mask, std::string& error)
{
    if (isHex(text)) {
        mask = static_cast<unsigned int>(std::strtoul(text.c_str() + 2, nullptr, 16));
        return true;
    }
    if (isBitString(text)) {
        mask = bitStringMask(text);
        return true;
    }
    mask = 0;
    std::size_t start = 0;
    while ((start = text.find_first_not_of(", \t", start)) != std::string::npos) {
        const std::size_t end = text.find_first_of(", \t", start);
        const std::string item = text.substr(start, end - start);
        start = end;
        try {
            mask |= levelSetMask(CLevelSet(item));
        } catch (const std::invalid_argument&) {
            error = "\"" + item +
                "\" is not a level: give a hex mask (0x1f), a bit string (000011111) or level "
                "names and numbers (emerg alert crit err warn notice info debug trace, 0-31, "
                "ranges such as emerg-warn, all)";
            return false;
        }
    }
    if (text.find_first_not_of(", \t") == std::string::npos) {
        error = "no levels given";
        return false;
    }
    return true;
}

std::string levelNames(unsigned int mask)
{
    if (mask == 0) {
        return "none";
    }
    if (mask == 0xFFFFFFFFu) {
        return "all";
    }
    std::string names;
    for (unsigned int n = 0; n < BITS; ++n) {
        const vexlor_level level{n, 1u << n};
        if ((mask & level.mask) != 0) {
            const char* name = levelName(&level);
            names += (names.empty() ? "" : " ") + (name != nullptr ? std::string(name) : std::to_string(n));
        }
    }
    return names;
}
