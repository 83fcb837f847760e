// RFC 5424 message formatting: header fields, structured data, UTF-8 rules and length limits.
// The sender formats every record here, so the common case (printable ASCII names, a time in the
// same second as the last record's) is appended in runs rather than byte by byte.
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
constexpr std::size_t MSGID_MAX = 32;

bool isContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }
bool isPrintable(char c) { return c > ' ' && c < 127; }

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

void appendHeaderField(std::string& out, std::string_view text, std::size_t maxLength)
{
    const std::size_t start = out.size();
    std::size_t clean = 0;
    while (clean < text.size() && clean < maxLength && isPrintable(text[clean])) {
        ++clean;
    }
    out.append(text.data(), clean);
    for (std::size_t i = clean; i < text.size() && out.size() - start < maxLength; ++i) {
        if (isPrintable(text[i])) {
            out += text[i];
        }
    }
    if (out.size() == start) {
        out += '-';
    }
}

// Appends the UTF-8 sequence at text[i], or U+FFFD for a byte that starts none; the index after it.
std::size_t appendSequence(std::string& out, std::string_view text, std::size_t i)
{
    const std::size_t length = sequenceLength(reinterpret_cast<const unsigned char*>(text.data()) + i, text.size() - i);
    if (length == 0) {
        out += "\xEF\xBF\xBD";
        return i + 1;
    }
    out.append(text.data() + i, length);
    return i + length;
}

void appendNumber(std::string& out, long long value)
{
    char digits[24];
    char* end = digits + sizeof digits;
    char* p = end;
    const bool negative = value < 0;
    unsigned long long rest = negative ? 0ULL - static_cast<unsigned long long>(value) : value;
    do {
        *--p = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (negative) {
        *--p = '-';
    }
    out.append(p, static_cast<std::size_t>(end - p));
}

}  // namespace

std::string headerField(std::string_view text, std::size_t maxLength)
{
    std::string field;
    appendHeaderField(field, text, maxLength);
    return field;
}

void appendValidUtf8(std::string& out, std::string_view text)
{
    for (std::size_t i = 0; i < text.size();) {
        i = appendSequence(out, text, i);
    }
}

void appendSdValue(std::string& out, std::string_view value)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(value.data());
    std::size_t run = 0;  // start of the bytes not yet appended
    std::size_t i = 0;
    while (i < value.size()) {
        const unsigned char c = bytes[i];
        if (c < 0x80 && c != '"' && c != '\\' && c != ']') {
            ++i;
            continue;
        }
        out.append(value.data() + run, i - run);
        if (c < 0x80) {
            out += '\\';
            out += static_cast<char>(c);
            ++i;
        } else {
            i = appendSequence(out, value, i);
        }
        run = i;
    }
    out.append(value.data() + run, i - run);
}

std::size_t utf8PrefixLength(std::string_view text, std::size_t maxLength)
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
    CRfc5424Options options;
    options.utc = utc;
    CRfc5424Formatter formatter(options);
    CQueuedRecord record;
    record.seconds = seconds;
    record.microseconds = microseconds;
    std::string message;
    formatter.append(record, message);
    const std::size_t start = message.find(' ') + 1;
    return message.substr(start, message.find(' ', start) - start);
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

void CRfc5424Formatter::appendTime(long long seconds, int microseconds, std::string& out)
{
    if (seconds != m_second) {
        std::tm parts{};
        vx::civilTime(seconds, m_options.utc, parts);
        char text[48];
        std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.", parts.tm_year + 1900, parts.tm_mon + 1,
                      parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
        m_date = text;
        if (m_options.utc) {
            m_zone = "Z";
        } else {
            const long offset = parts.tm_gmtoff;
            const long minutes = (offset < 0 ? -offset : offset) / 60;
            std::snprintf(text, sizeof text, "%c%02ld:%02ld", offset < 0 ? '-' : '+', minutes / 60, minutes % 60);
            m_zone = text;
        }
        m_second = seconds;
    }
    out += m_date;
    char digits[6];
    unsigned rest = static_cast<unsigned>(microseconds) % 1000000;
    for (int i = 5; i >= 0; --i) {
        digits[i] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    }
    out.append(digits, sizeof digits);
    out += m_zone;
}

void CRfc5424Formatter::append(const CQueuedRecord& record, std::string& out)
{
    const std::size_t start = out.size();
    out += '<';
    appendNumber(out, m_options.facility * 8 + record.severity);
    out += ">1 ";
    appendTime(record.seconds, record.microseconds, out);
    out += ' ';
    out += m_hostname;
    out += ' ';
    appendHeaderField(out, record.appname, APPNAME_MAX);
    out += ' ';
    appendNumber(out, record.pid);  // at most 11 printable bytes: within PROCID's 128
    out += ' ';
    appendHeaderField(out, record.component, MSGID_MAX);
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
    out += "\" depth=\"";
    appendNumber(out, record.depth);
    out += "\"]";
    if (m_options.sequence) {
        out += "[meta sequenceId=\"";
        appendNumber(out, record.sequence);
        out += "\"]";
    }
    if (record.message.empty() && !m_options.bom) {
        return;
    }
    out += ' ';
    const std::size_t bomLength = m_options.bom ? BOM_LENGTH : 0;
    std::size_t room = std::string::npos;
    if (m_options.maxLength != 0) {
        if (out.size() - start + bomLength > m_options.maxLength) {
            // Names too long for one datagram: the header and the text matter more.
            out.replace(sdStart, out.size() - sdStart, "- ");
        }
        const std::size_t used = out.size() - start + bomLength;
        room = m_options.maxLength > used ? m_options.maxLength - used : 0;
    }
    if (m_options.bom) {
        // The mark promises UTF-8: invalid bytes are replaced before the cut, so the cut stays valid.
        std::string valid;
        appendValidUtf8(valid, record.message);
        out += BOM;
        out.append(valid, 0, utf8PrefixLength(valid, room));
    } else {
        out.append(record.message.data(), utf8PrefixLength(record.message, room));
    }
}
