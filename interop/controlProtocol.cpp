// The control protocol's names and line format (see controlProtocol.h).
#include "controlProtocol.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vexlor_control {

namespace {

constexpr std::size_t NONCE_DIGITS = 16;

bool allOf(const std::string& text, std::size_t from, std::size_t to, const char* alphabet)
{
    return from < to && text.find_first_not_of(alphabet, from) >= to;
}

}  // namespace

std::string primaryName(pid_t pid) { return SOCKET_PREFIX + std::to_string(pid); }

std::string fallbackName(pid_t pid, unsigned long long nonce)
{
    char text[NONCE_DIGITS + 2];
    std::snprintf(text, sizeof text, ".%016llx", nonce);
    return primaryName(pid) + text;
}

pid_t pidOfName(const std::string& name)
{
    const std::size_t prefix = std::strlen(SOCKET_PREFIX);
    if (name.compare(0, prefix, SOCKET_PREFIX) != 0) {
        return -1;
    }
    const std::size_t dot = name.find('.', prefix);
    const std::size_t end = dot == std::string::npos ? name.size() : dot;
    // Up to nine digits without a leading 0: every pid the kernel hands out (at most 2^22), one
    // name each, and no overflow.
    if (end - prefix > 9 || name[prefix] == '0' || !allOf(name, prefix, end, "0123456789") ||
        (dot != std::string::npos &&
         (name.size() - dot - 1 != NONCE_DIGITS || !allOf(name, dot + 1, name.size(), "0123456789abcdef")))) {
        return -1;
    }
    return static_cast<pid_t>(std::atoi(name.c_str() + prefix));
}

socklen_t socketAddress(const std::string& name, sockaddr_un& address)
{
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    // sun_path[0] == 0 makes the name abstract; ours are short, never cut.
    const std::size_t length = std::min(name.size(), sizeof address.sun_path - 1);
    std::memcpy(address.sun_path + 1, name.data(), length);
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
}

std::string joinFields(const std::vector<std::string>& fields)
{
    std::string line;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i != 0) {
            line += '\t';
        }
        for (const char c : fields[i]) {
            switch (c) {
            case '\\': line += "\\\\"; break;
            case '\t': line += "\\t"; break;
            case '\n': line += "\\n"; break;
            default: line += c;
            }
        }
    }
    return line + '\n';
}

std::vector<std::string> splitFields(const std::string& line)
{
    std::vector<std::string> fields(1);
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\t') {
            fields.emplace_back();
        } else if (line[i] == '\\' && i + 1 < line.size()) {
            const char next = line[++i];
            fields.back() += next == 't' ? '\t' : next == 'n' ? '\n' : next;
        } else {
            fields.back() += line[i];
        }
    }
    return fields;
}

EFrame takeRequestLine(std::string& input, std::string& line)
{
    const std::size_t end = input.find('\n');
    if (end == std::string::npos) {
        return input.size() >= MAX_REQUEST ? EFrame::OVERLONG : EFrame::INCOMPLETE;
    }
    if (end >= MAX_REQUEST) {
        return EFrame::OVERLONG;
    }
    line.assign(input, 0, end);
    input.erase(0, end + 1);
    return EFrame::LINE;
}

}  // namespace vexlor_control
