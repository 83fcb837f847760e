// Parsing of the `levels=` parameter and the level names of the shipped targets.
#include "CLevelSet.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace {

constexpr unsigned int HIGHEST = 32;  // VX_ALL's number; created levels above never pass a mask

const char* const NAMES[] = {"EMERG", "ALERT", "CRIT", "ERR", "WARN", "NOTICE", "INFO", "DEBUG", "TRACE"};

struct CAlias {
    const char* name;
    unsigned int number;
};
const CAlias ALIASES[] = {{"error", 3}, {"warning", 4}, {"enterleave", 8}};

}  // namespace

bool parseLevelNumber(const std::string& text, unsigned int& number)
{
    for (unsigned int i = 0; i < sizeof NAMES / sizeof NAMES[0]; ++i) {
        if (strcasecmp(text.c_str(), NAMES[i]) == 0) {
            number = i;
            return true;
        }
    }
    for (const CAlias& alias : ALIASES) {
        if (strcasecmp(text.c_str(), alias.name) == 0) {
            number = alias.number;
            return true;
        }
    }
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 2) {
        return false;
    }
    number = static_cast<unsigned int>(std::atoi(text.c_str()));
    return number <= HIGHEST;
}

CLevelSet::CLevelSet(const std::string& text)
    : m_all(false)
{
    std::size_t start = 0;
    while ((start = text.find_first_not_of(" \t|", start)) != std::string::npos) {
        const std::size_t end = text.find_first_of(" \t|", start);
        const std::string item = text.substr(start, end - start);
        start = end;
        if (strcasecmp(item.c_str(), "all") == 0) {
            m_all = true;
            continue;
        }
        const std::size_t dash = item.find('-');
        unsigned int low = 0;
        unsigned int high = 0;
        const bool ok = dash == std::string::npos
            ? parseLevelNumber(item, low) && parseLevelNumber(item, high)
            : parseLevelNumber(item.substr(0, dash), low) && parseLevelNumber(item.substr(dash + 1), high);
        if (!ok) {
            throw std::invalid_argument("levels=" + text + ": \"" + item +
                                        "\" is not a level (emerg ... debug, trace, 0-32, a range such as "
                                        "emerg-warn, or all)");
        }
        if (low > high) {
            std::swap(low, high);
        }
        for (unsigned int n = low; n <= high; ++n) {
            m_numbers |= std::uint64_t{1} << n;
        }
    }
    if (!m_all && m_numbers == 0) {
        throw std::invalid_argument("levels=" + text + ": no level given");
    }
}

const char* levelName(const vexlor_level* level)
{
    if (level->numeric < sizeof NAMES / sizeof NAMES[0]) {
        return NAMES[level->numeric];
    }
    return level->numeric == HIGHEST && level->mask == 0xFFFFFFFFu ? "ALL" : nullptr;
}
