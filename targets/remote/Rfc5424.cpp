// RFC 5424 message formatting: header fields, structured data, UTF-8 rules and length limits.
#include "Rfc5424.h"

#include <cstdio>
#include <ctime>

#include "civilTime.h"

namespace {

const char BOM[] = "\xEF\xBB\xBF";
constexpr std::size_t BOM_LENGTH = 3;

// Field lengths of RFC 5424's header.
constexpr std::size_t HOSTNAME_MAX = 255;
constexpr std::size_t APPNAME_MAX = 48;
constexpr std::size_t PROCID_MAX = 128;
constexpr std::size_t MSGID_MAX = 32;

bool isContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Length of the well-formed UTF-8 sequence at p (n bytes available), 0 when there is none.
std::size_t sequenceLength(const unsigned char* p, std::size_t n)
{
    const unsigned char c = p[0];
    if (c < 0x80) {
        return 1;
    }
    std::size_t length = 0;
    unsigned char low = 0x80;  // the range of the second byte, narrowed against overlong forms,
    unsigned char high = 0xBF;  // surrogates and code points above U+10FFFF
    if (c >= 0xC2 && c <= 0xDF) {
        length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        length = 3;
        low = c == 0xE0 ? 0xA0 : 0x80;
        high = c == 0xED ? 0x9F : 0xBF;
    } else if (c >= 0xF0 && c <= 0xF4) {
        length = 4;
        low = c == 0xF0 ? 0x90 : 0x80;
        high = c == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (n < length || p[1] < low || p[1] > high) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if (!isContinuation(p[i])) {
            return 0;
        }
    }
    return length;
}

}  // namespace

std::string headerField(const std::string& text, std::size_t maxLength)
{
    std::string field;
    for (const char c : text) {
        if (field.size() == maxLength) {
            break;
        }
        if (c > ' ' && c < 127) {
            field += c;
        }
    }
    return field.empty() ? "-" : field;
}

void appendValidUtf8(std::string& out, const std::string& text)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t i = 0;
    while (i < text.size()) {
        const std::size_t length = sequenceLength(bytes + i, text.size() - i);
        if (length == 0) {
            out += "\xEF\xBF\xBD";
            ++i;
        } else {
            out.append(text, i, length);
            i += length;
        }
    }
}

void appendSdValue(std::string& out, const std::string& value)
{
    std::string valid;
    appendValidUtf8(valid, value);
    for (const char c : valid) {
        if (c == '"' || c == '\\' || c == ']') {
            out += '\\';
        }
        out += c;
    }
}

std::size_t utf8PrefixLength(const std::string& text, std::size_t maxLength)
{
    if (text.size() <= maxLength) {
        return text.size();
    }
    std::size_t cut = maxLength;
    // A sequence is at most four bytes: back up over at most three continuation bytes.
    for (int i = 0; i < 3 && cut > 0 && isContinuation(static_cast<unsigned char>(text[cut])); ++i) {
        --cut;
    }
    return cut;
}

std::string rfc3339Time(long long seconds, int microseconds, bool utc)
{
    std::tm parts{};
    vx::civilTime(seconds, utc, parts);
    char text[64];
    int length =
        std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06d", parts.tm_year + 1900, parts.tm_mon + 1,
                      parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, microseconds);
    if (utc) {
        std::snprintf(text + length, sizeof text - length, "Z");
    } else {
        const long offset = parts.tm_gmtoff;
        const long minutes = (offset < 0 ? -offset : offset) / 60;
        std::snprintf(text + length, sizeof text - length, "%c%02ld:%02ld", offset < 0 ? '-' : '+', minutes / 60,
                      minutes % 60);
    }
    return text;
}

bool isValidSdId(const std::string& sdId)
{
    if (sdId.empty() || sdId.size() > 32 || sdId.find('@') == std::string::npos) {
        return false;
    }
    for (const char c : sdId) {
        if (c <= ' ' || c >= 127 || c == '=' || c == ']' || c == '"') {
            return false;
        }
    }
    return true;
}

CRfc5424Formatter::CRfc5424Formatter(CRfc5424Options options)
    : m_options(std::move(options))
    , m_hostname(headerField(m_options.hostname, HOSTNAME_MAX))
{
}

void CRfc5424Formatter::format(const CQueuedRecord& record, std::string& out) const
{
    out = "<" + std::to_string(m_options.facility * 8 + record.severity) + ">1 ";
    out += rfc3339Time(record.seconds, record.microseconds, m_options.utc);
    out += ' ';
    out += m_hostname;
    out += ' ';
    out += headerField(record.appname, APPNAME_MAX);
    out += ' ';
    out += headerField(std::to_string(record.pid), PROCID_MAX);
    out += ' ';
    out += headerField(record.component, MSGID_MAX);
    out += ' ';
    const std::size_t sdStart = out.size();
    out += '[';
    out += m_options.sdId;
    out += " component=\"";
    appendSdValue(out, record.component);
    out += "\" thread=\"";
    appendSdValue(out, record.thread);
    if (!record.function.empty()) {
        out += "\" function=\"";
        appendSdValue(out, record.function);
    }
    out += "\" depth=\"" + std::to_string(record.depth) + "\"]";
    if (record.message.empty() && !m_options.bom) {
        return;
    }
    out += ' ';
    const std::size_t bomLength = m_options.bom ? BOM_LENGTH : 0;
    std::size_t room = std::string::npos;
    if (m_options.maxLength != 0) {
        if (out.size() + bomLength > m_options.maxLength) {
            // Names too long for one datagram: the header and the text matter more.
            out.replace(sdStart, out.size() - sdStart, "- ");
        }
        room = m_options.maxLength > out.size() + bomLength ? m_options.maxLength - out.size() - bomLength : 0;
    }
    if (m_options.bom) {
        // The mark promises UTF-8: invalid bytes are replaced before the cut, so the cut stays valid.
        std::string valid;
        appendValidUtf8(valid, record.message);
        out += BOM;
        out.append(valid, 0, utf8PrefixLength(valid, room));
    } else {
        out.append(record.message, 0, utf8PrefixLength(record.message, room));
    }
}
