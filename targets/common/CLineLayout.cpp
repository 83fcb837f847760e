// Parsing of `pattern=` into items, and the formatting of one record by them.
#include "CLineLayout.h"

#include <algorithm>
#include <cerrno>  // program_invocation_short_name
#include <cstring>
#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "CLevelSet.h"

namespace {

// Deeper nesting still indents, but no further: the line stays readable.
constexpr int MAX_INDENT_DEPTH = 32;

}  // namespace

const char* const CLineLayout::DEFAULT_PATTERN = "%d %t %a[%p] %l %c [%T] %i%F%m";

CLineLayout::CLineLayout(const std::string& pattern, bool utc) : m_utc(utc)
{
    static const struct {
        char letter;
        EToken token;
    } TOKENS[] = {{'d', EToken::DATE},          {'t', EToken::TIME},       {'p', EToken::PID},
                  {'a', EToken::APPNAME},       {'l', EToken::LEVEL_NAME}, {'L', EToken::LEVEL_NUMBER},
                  {'T', EToken::THREAD},        {'c', EToken::COMPONENT},  {'f', EToken::FUNCTION},
                  {'F', EToken::FUNCTION_PREFIX}, {'i', EToken::INDENT},   {'m', EToken::MESSAGE}};
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
        const auto* found = std::find_if(std::begin(TOKENS), std::end(TOKENS),
                                         [&](const auto& t) { return t.letter == pattern[i]; });
        if (found == std::end(TOKENS)) {
            throw std::invalid_argument("pattern=" + pattern + ": unknown token %" + pattern[i] +
                                        " (known: %d %t %p %a %l %L %T %c %f %F %i %m %%)");
        }
        if (!text.empty()) {
            m_items.push_back(CItem{EToken::TEXT, text});
            text.clear();
        }
        m_items.push_back(CItem{found->token, std::string()});
    }
    if (!text.empty()) {
        m_items.push_back(CItem{EToken::TEXT, text});
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
    const auto when = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if ((m_utc ? gmtime_r(&when, &parts) : localtime_r(&when, &parts)) == nullptr) {
        // Out of the C library's range: visibly no date rather than a wrong one.
        std::snprintf(m_date, sizeof m_date, "%s", "0000-00-00");
        std::snprintf(m_time, sizeof m_time, "%s", "00:00:00");
    } else {
        std::strftime(m_date, sizeof m_date, "%Y-%m-%d", &parts);
        std::strftime(m_time, sizeof m_time, "%H:%M:%S", &parts);
    }
    m_clockSecond = seconds;
    m_clockValid = true;
}

void CLineLayout::format(CLineBuffer& out, const CLogRecord& record)
{
    for (const CItem& item : m_items) {
        switch (item.token) {
        case EToken::TEXT:
            out.append(item.text);
            break;
        case EToken::DATE:
        case EToken::TIME:
            // One conversion per second of record time: the rest of the second reuses the text.
            if (!m_clockValid || record.seconds != m_clockSecond) {
                updateClock(record.seconds);
            }
            if (item.token == EToken::DATE) {
                out.append(m_date, sizeof m_date - 1);
            } else {
                out.append(m_time, sizeof m_time - 1);
                out.append('.');
                out.appendUnsigned(static_cast<unsigned>(record.microseconds), 6);
            }
            break;
        case EToken::PID:
            out.appendSigned(record.pid);
            break;
        case EToken::APPNAME: {
            const char* name = displayedAppname(record.appname);
            out.appendEscaped(name, std::strlen(name));
            break;
        }
        case EToken::LEVEL_NAME:
            if (const char* name = levelName(record.level)) {
                out.append(name);
            } else {
                out.appendUnsigned(record.level->numeric);
            }
            break;
        case EToken::LEVEL_NUMBER:
            out.appendUnsigned(record.level->numeric);
            break;
        case EToken::THREAD:
            out.appendEscaped(record.threadName);
            break;
        case EToken::COMPONENT:
            out.appendEscaped(record.componentName);
            break;
        case EToken::FUNCTION:
            out.appendEscaped(record.functionName);
            break;
        case EToken::FUNCTION_PREFIX:
            if (!record.functionName.empty()) {
                out.appendEscaped(record.functionName);
                out.append(": ", 2);
            }
            break;
        case EToken::INDENT:
            out.appendSpaces(2 * static_cast<std::size_t>(std::min(std::max(record.depth, 0), MAX_INDENT_DEPTH)));
            break;
        case EToken::MESSAGE:
            out.appendEscaped(record.message);
            break;
        }
    }
}

const char* displayedAppname(const std::string& appname)
{
    return appname.empty() ? program_invocation_short_name : appname.c_str();
}
