// The `levels=` parameter that every shipped target accepts: which records the target writes.
// A list of items separated by blanks or "|": a level name (emerg alert crit err warn notice info
// debug trace, also error, warning, enterleave), a level number 0-32, a range of either
// ("emerg-warn", "0-4", either order), or "all". Without the parameter: every record.
#pragma once

#include <cstdint>
#include <string>

#include <vexlor/vexlor_target.h>

class CLevelSet {
public:
    // Every record.
    CLevelSet() = default;
    // Throws std::invalid_argument naming the item it cannot read.
    explicit CLevelSet(const std::string& text);
    // From the target's `levels=` parameter; every record without it.
    static CLevelSet fromParameters(const CLogTargetParameters& parameters)
    {
        const std::string text = targetParameter(parameters, "levels");
        return text.empty() ? CLevelSet() : CLevelSet(text);
    }

    bool contains(const vexlor_level* level) const
    {
        return m_all || (level->numeric < 64 && (m_numbers >> level->numeric & 1u) != 0);
    }

private:
    bool m_all = true;
    std::uint64_t m_numbers = 0;  // bit n: level number n
};

// A level name of the list above (any case) or a number 0-32; false for anything else.
bool parseLevelNumber(const std::string& text, unsigned int& number);

// "EMERG" ... "DEBUG", "TRACE" for VX_ENTERLEAVE, "ALL" for VX_ALL; null for a created level,
// which a target shows by its number.
const char* levelName(const vexlor_level* level);
