// Parsing of `pattern=` into items, and the formatting of one record by them.
#include "CLineLayout.h"

#include <algorithm>
#include <cerrno>  // program_invocation_short_name
#include <cstring>
#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "CLevelSet.h"
#include "civilTime.h"

namespace {

// `count` decimal digits of a value known to fit them.
void writeDigits(char* to, int count, int value)
{
    for (int i = count - 1; i >= 0; --i) {
        to[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

// Deeper nesting still indents, but no further: the line stays readable.
constexpr int MAX_INDENT_DEPTH = 32;

}  // namespace

const char* const CLineLayout::DEFAULT_PATTERN = "%d %t %a[%p] %l %c [%T] %i%F%m";

CLineLayout::CLineLayout(const std::string& pattern, bool utc)
    : m_utc(utc)
{
    static const struct {
        char letter;
        EToken token;
    } TOKENS[] = {{'d', EToken::DATE},       {'t', EToken::TIME},
                  {'p', EToken::PID},        {'a', EToken::APPNAME},
                  {'l', EToken::LEVEL_NAME}, {'L', EToken::LEVEL_NUMBER},
                  {'T', EToken::THREAD},     {'c', EToken::COMPONENT},
                  {'f', EToken::FUNCTION},   {'F', EToken::FUNCTION_PREFIX},
                  {'i', EToken::INDENT},     {'m', EToken::MESSAGE}};
    std::string text;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%') {
            text += pattern[i];
            continue;
        }
        if (++i == pattern.size()) {
            throw std::invalid_argument("pattern=" + pattern + ": a lone % at the end (write %% for a percent sign)");
        }
        if (pattern[i] == '%') {
            text += '%';
            continue;
        }
        const auto* found =
            std::find_if(std::begin(TOKENS), std::end(TOKENS), [&](const auto& t) { return t.letter == pattern[i]; });
        if (found == std::end(TOKENS)) {
            throw std::invalid_argument("pattern=" + pattern + ": unknown token %" + pattern[i] +
                                        " (known: %d %t %p %a %l %L %T %c %f %F %i %m %%)");
        }
        if (!text.empty()) {
            m_items.push_back(CItem{EToken::TEXT, text});
            m_fixedLength += text.size();
            text.clear();
        }
        m_items.push_back(CItem{found->token, std::string()});
        count(found->token);
    }
    if (!text.empty()) {
        m_items.push_back(CItem{EToken::TEXT, text});
        m_fixedLength += text.size();
    }
}

void CLineLayout::count(EToken token)
{
    switch (token) {
    case EToken::DATE:
        m_fixedLength += sizeof m_date;
        m_usesClock = true;
        break;
    case EToken::TIME:
        m_fixedLength += sizeof m_time + 7;
        m_usesClock = true;
        break;
    case EToken::THREAD: ++m_uses.thread; break;
    case EToken::COMPONENT: ++m_uses.component; break;
    case EToken::FUNCTION: ++m_uses.function; break;
    case EToken::FUNCTION_PREFIX:
        ++m_uses.function;
        m_fixedLength += 2;
        break;
    case EToken::MESSAGE: ++m_uses.message; break;
    case EToken::APPNAME: ++m_uses.appname; break;
    case EToken::INDENT: m_fixedLength += 2 * MAX_INDENT_DEPTH; break;
    default: m_fixedLength += 21; break;  // a number or a level name
    }
}

CLineLayout CLineLayout::fromParameters(const CLogTargetParameters& parameters, const char* defaultPattern)
{
    const std::string time = targetParameter(parameters, "time", "local");
    if (time != "local" && time != "utc") {
        throw std::invalid_argument("time=" + time + ": not local or utc");
    }
    return CLineLayout(targetParameter(parameters, "pattern", defaultPattern), time == "utc");
}

void CLineLayout::updateClock(long long seconds)
{
    std::tm parts{};
    if (!vx::civilTime(seconds, m_utc, parts) || parts.tm_year + 1900 < 0 || parts.tm_year + 1900 > 9999) {
        // Out of the four-digit calendar: visibly no date rather than a wrong one.
        std::snprintf(m_date, sizeof m_date, "%s", "0000-00-00");
        std::snprintf(m_time, sizeof m_time, "%s", "00:00:00");
    } else {
        writeDigits(m_date, 4, parts.tm_year + 1900);
        m_date[4] = '-';
        writeDigits(m_date + 5, 2, parts.tm_mon + 1);
        m_date[7] = '-';
        writeDigits(m_date + 8, 2, parts.tm_mday);
        writeDigits(m_time, 2, parts.tm_hour);
        m_time[2] = ':';
        writeDigits(m_time + 3, 2, parts.tm_min);
        m_time[5] = ':';
        writeDigits(m_time + 6, 2, parts.tm_sec);
    }
    m_clockSecond = seconds;
    m_clockValid = true;
}

void CLineLayout::format(CLineBuffer& out, const CLogRecord& record)
{
    // One conversion per second of record time: the rest of the second reuses the text.
    if (m_usesClock && (!m_clockValid || record.seconds != m_clockSecond)) {
        updateClock(record.seconds);
    }
    const char* appname = displayedAppname(record.appname);
    const std::size_t appnameLength = std::strlen(appname);
    // The line is written in one pass without a check per piece, after one reservation for its
    // longest length.
    char* to =
        out.claim(m_fixedLength +
                  CLineBuffer::ESCAPED_MAX *
                      (m_uses.thread * record.threadName.size() + m_uses.component * record.componentName.size() +
                       m_uses.function * record.functionName.size() + m_uses.message * record.message.size() +
                       m_uses.appname * appnameLength));
    for (const CItem& item : m_items) {
        switch (item.token) {
        case EToken::TEXT: to = CLineBuffer::put(to, item.text.data(), item.text.size()); break;
        case EToken::DATE: to = CLineBuffer::put(to, m_date, sizeof m_date - 1); break;
        case EToken::TIME:
            to = CLineBuffer::put(to, m_time, sizeof m_time - 1);
            *to++ = '.';
            to = CLineBuffer::putUnsigned(to, static_cast<unsigned>(record.microseconds), 6);
            break;
        case EToken::PID:
            if (record.pid != m_pid || m_pidLength == 0) {
                m_pid = record.pid;  // the same in every record of a process: converted once
                char* end = m_pidText;
                if (record.pid < 0) {
                    *end++ = '-';
                }
                end = CLineBuffer::putUnsigned(end,
                                               record.pid < 0 ? 0ULL - static_cast<unsigned long long>(record.pid)
                                                              : static_cast<unsigned long long>(record.pid));
                m_pidLength = static_cast<std::size_t>(end - m_pidText);
            }
            to = CLineBuffer::put(to, m_pidText, m_pidLength);
            break;
        case EToken::APPNAME: to = CLineBuffer::putEscaped(to, appname, appnameLength); break;
        case EToken::LEVEL_NAME:
            if (const char* name = levelName(record.level)) {
                to = CLineBuffer::put(to, name, std::strlen(name));
            } else {
                to = CLineBuffer::putUnsigned(to, record.level->numeric);
            }
            break;
        case EToken::LEVEL_NUMBER: to = CLineBuffer::putUnsigned(to, record.level->numeric); break;
        case EToken::THREAD:
            to = CLineBuffer::putEscaped(to, record.threadName.data(), record.threadName.size());
            break;
        case EToken::COMPONENT:
            to = CLineBuffer::putEscaped(to, record.componentName.data(), record.componentName.size());
            break;
        case EToken::FUNCTION:
        case EToken::FUNCTION_PREFIX:
            to = CLineBuffer::putEscaped(to, record.functionName.data(), record.functionName.size());
            if (item.token == EToken::FUNCTION_PREFIX && !record.functionName.empty()) {
                to = CLineBuffer::put(to, ": ", 2);
            }
            break;
        case EToken::INDENT: {
            const auto spaces = static_cast<std::size_t>(2 * std::min(std::max(record.depth, 0), MAX_INDENT_DEPTH));
            std::memset(to, ' ', spaces);
            to += spaces;
            break;
        }
        case EToken::MESSAGE: to = CLineBuffer::putEscaped(to, record.message.data(), record.message.size()); break;
        }
    }
    out.commit(to);
}

const char* displayedAppname(const std::string& appname)
{
    return appname.empty() ? program_invocation_short_name : appname.c_str();
}
