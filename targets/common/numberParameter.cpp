// Whole-number parameters: decimal digits only, so "10k", "-1" and "0x10" are refused, not misread.
#include "numberParameter.h"

#include <algorithm>
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

namespace {

// 16K, 256M, 1048576G: the largest unit that divides the count.
std::string sizeText(unsigned long long bytes)
{
    const char* const units = "GMK";
    for (int shift = 30, i = 0; shift > 0; shift -= 10, ++i) {
        if (bytes != 0 && bytes % (1ULL << shift) == 0) {
            return std::to_string(bytes >> shift) + units[i];
        }
    }
    return std::to_string(bytes);
}

}  // namespace

unsigned long long byteCountParameter(const CLogTargetParameters& parameters, const std::string& key,
                                      unsigned long long fallback, unsigned long long low, unsigned long long high)
{
    const std::string text = targetParameter(parameters, key);
    if (text.empty()) {
        return fallback;
    }
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const std::string suffix = text.substr(digits);
    const unsigned long long unit = suffix.empty() ? 1
        : suffix == "K" || suffix == "k"           ? 1ULL << 10
        : suffix == "M" || suffix == "m"           ? 1ULL << 20
        : suffix == "G" || suffix == "g"           ? 1ULL << 30
                                                   : 0;
    const unsigned long long number = digits == 0 || digits > 16 ? 0 : std::stoull(text.substr(0, digits));
    if (unit == 0 || number == 0 || number > high / unit || number * unit < low) {
        throw std::invalid_argument(key + "=" + text + ": not a size from " + sizeText(low) + " to " + sizeText(high) +
                                    " (bytes, or with K, M, G)");
    }
    return number * unit;
}
