// Reading and checking the file target's parameters.
#include "CFileOptions.h"

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "CLevelSet.h"
#include "CLineLayout.h"
#include "numberParameter.h"

namespace {

std::invalid_argument badValue(const std::string& key, const std::string& value, const std::string& why)
{
    return std::invalid_argument(key + "=" + value + ": " + why);
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
    options.maxSize = byteCountParameter(parameters, "max-size", options.maxSize, 1, 1ULL << 50);
    const std::string maxFiles = targetParameter(parameters, "max-files");
    if (!maxFiles.empty()) {
        options.maxFiles = static_cast<unsigned>(wholeNumber("max-files", maxFiles, 1, 999));
    }
    options.bufferSize =
        static_cast<std::size_t>(byteCountParameter(parameters, "buffer", options.bufferSize, 1, 64ULL << 20));
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
