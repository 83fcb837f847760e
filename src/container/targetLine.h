// The value of a `target` configuration line: "<library path>[, key=value]...".
#pragma once

#include <map>
#include <string>

namespace vx {

// Splits `value` into the library path (returned, trimmed) and its parameters, which are added to
// `params` (a key already there keeps its value), followed by "application-name" = `appname`
// unless the line gave that key itself. Items that are not exactly key=value are ignored.
std::string parseTargetLine(const std::string& value, const std::string& appname,
                            std::map<std::string, std::string>& params);

}  // namespace vx
