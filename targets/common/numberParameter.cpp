// Whole-number parameters: decimal digits only, so "10k", "-1" and "0x10" are refused, not misread.
#include "numberParameter.h"

#include <stdexcept>

long long numberParameter(const CLogTargetParameters& parameters, const std::string& key, long long fallback,
                          long long low, long long high)
{
    const std::string text = targetParameter(parameters, key);
    if (text.empty()) {
        return fallback;
    }
    long long value = 0;
    bool ok = text.size() <= 18 && text.find_first_not_of("0123456789") == std::string::npos;
    if (ok) {
        value = std::stoll(text);
        ok = value >= low && value <= high;
    }
    if (!ok) {
        throw std::invalid_argument(key + "=" + text + ": not a whole number from " + std::to_string(low) + " to " +
                                    std::to_string(high));
    }
    return value;
}
