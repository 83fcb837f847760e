// Reading and checking the file target's parameters.
#include "CFileOptions.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "CLevelSet.h"
#include "CLineLayout.h"

namespace {

std::invalid_argument badValue(const std::string& key, const std::string& value, const std::string& why)
{
    return std::invalid_argument(key + "=" + value + ": " + why);
}

// Digits with an optional K, M or G (powers of 1024), within [1, limit].
unsigned long long byteCount(const std::string& key, const std::string& value, unsigned long long limit)
{
    const std::size_t digits = std::min(value.find_first_not_of("0123456789"), value.size());
    const std::string suffix = value.substr(digits);
    const unsigned long long unit = suffix.empty() ? 1
        : suffix == "K" || suffix == "k"           ? 1ULL << 10
        : suffix == "M" || suffix == "m"           ? 1ULL << 20
        : suffix == "G" || suffix == "g"           ? 1ULL << 30
                                                   : 0;
    const unsigned long long number = digits == 0 || digits > 16 ? 0 : std::stoull(value.substr(0, digits));
    if (unit == 0 || number == 0 || number > limit / unit) {
        throw badValue(key, value, "not a size from 1 to " + std::to_string(limit) + " bytes (suffixes K, M, G)");
    }
    return number * unit;
}

unsigned long long wholeNumber(const std::string& key, const std::string& value, unsigned long long low,
                               unsigned long long high)
{
    char* end = nullptr;
    errno = 0;
    const unsigned long long number = std::strtoull(value.c_str(), &end, 10);
    if (value.empty() || value[0] == '-' || *end != '\0' || errno != 0 || number < low || number > high) {
        throw badValue(key, value, "not a number from " + std::to_string(low) + " to " + std::to_string(high));
    }
    return number;
}

// A parameter that only means something together with another one.
void requireWith(const CLogTargetParameters& parameters, const std::string& key, const std::string& needed)
{
    const std::string value = targetParameter(parameters, key);
    if (!value.empty() && targetParameter(parameters, needed).empty()) {
        throw badValue(key, value, "needs " + needed + "=");
    }
}

}  // namespace

CFileOptions CFileOptions::fromParameters(const CLogTargetParameters& parameters)
{
    CFileOptions options;
    options.path = targetParameter(parameters, "path");
    if (options.path.empty()) {
        throw std::invalid_argument("path=: missing (the file to write)");
    }
    const std::string mode = targetParameter(parameters, "mode");
    if (!mode.empty()) {
        if (mode.find_first_not_of("01234567") != std::string::npos || mode.size() > 4 ||
            std::strtoul(mode.c_str(), nullptr, 8) > 0777) {
            throw badValue("mode", mode, "not an octal mode from 0 to 0777");
        }
        options.mode = static_cast<mode_t>(std::strtoul(mode.c_str(), nullptr, 8));
    }
    requireWith(parameters, "max-files", "max-size");
    requireWith(parameters, "flush-level", "buffer");
    requireWith(parameters, "flush-ms", "buffer");
    const std::string maxSize = targetParameter(parameters, "max-size");
    if (!maxSize.empty()) {
        options.maxSize = byteCount("max-size", maxSize, 1ULL << 50);
    }
    const std::string maxFiles = targetParameter(parameters, "max-files");
    if (!maxFiles.empty()) {
        options.maxFiles = static_cast<unsigned>(wholeNumber("max-files", maxFiles, 1, 999));
    }
    const std::string buffer = targetParameter(parameters, "buffer");
    if (!buffer.empty()) {
        options.bufferSize = static_cast<std::size_t>(byteCount("buffer", buffer, 64ULL << 20));
    }
    const std::string flushLevel = targetParameter(parameters, "flush-level");
    if (!flushLevel.empty() && !parseLevelNumber(flushLevel, options.flushLevel)) {
        throw badValue("flush-level", flushLevel, "not a level (emerg ... debug, trace, 0-32)");
    }
    const std::string flushMs = targetParameter(parameters, "flush-ms");
    if (!flushMs.empty()) {
        options.flushMs = static_cast<long long>(wholeNumber("flush-ms", flushMs, 1, 3600000));
    }
    return options;
}

std::string expandPath(const std::string& path, const std::string& appname)
{
    std::string result;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] != '%' || i + 1 == path.size() || (path[i + 1] != 'a' && path[i + 1] != '%')) {
            result += path[i];
        } else if (path[++i] == '%') {
            result += '%';
        } else {
            std::string name = displayedAppname(appname);
            for (char& c : name) {
                c = c == '/' ? '_' : c;
            }
            result += name;
        }
    }
    return result;
}
