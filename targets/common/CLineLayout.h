// The line layout that the shipped targets share: the `pattern=` and `time=` parameters turn each
// record into one line of text. A pattern is literal text with these tokens (none needs "," or
// "=", where a target line is split):
//   %d  date, YYYY-MM-DD                  %t  time, HH:MM:SS.uuuuuu (microseconds)
//   %p  process id                        %a  application name (the program's name until set)
//   %l  level name: EMERG ALERT CRIT ERR WARN NOTICE INFO DEBUG, TRACE for entry/exit records,
//       ALL, or the number of a created level           %L  level number
//   %T  thread name       %c  component      %f  traced function (empty outside one)
//   %F  the traced function and ": ", nothing outside one
//   %i  two spaces per tracing depth      %m  message                 %%  a literal %
// time=local (default) or time=utc chooses the clock of %d and %t. Control bytes inside a field
// are escaped (CLineBuffer::appendEscaped), so a record is always exactly one line.
#pragma once

#include <string>
#include <vector>

#include <vexlor/vexlor_target.h>

#include "CLineBuffer.h"

// One record as a target receives it, plus the application name the target knows.
struct CLogRecord {
    int pid;
    int depth;
    long long seconds;
    int microseconds;
    const vexlor_level* level;
    const std::string& threadName;
    const std::string& componentName;
    const std::string& functionName;
    const std::string& message;
    const std::string& appname;  // empty until the application names itself
};

class CLineLayout {
public:
    // 2025-03-01 14:22:03.120044 player[4242] WARN net [main] poll: link down
    static const char* const DEFAULT_PATTERN;

    // Throws std::invalid_argument naming the parameter and what is wrong with it.
    CLineLayout(const std::string& pattern, bool utc);
    // From `pattern=` (else `defaultPattern`) and `time=`.
    static CLineLayout fromParameters(const CLogTargetParameters& parameters,
                                      const char* defaultPattern = DEFAULT_PATTERN);

    // Appends the record's line, without a line feed. Keeps the text of the last second it
    // formatted, so one layout serves one thread at a time (a target under the library's lock).
    void format(CLineBuffer& out, const CLogRecord& record);

private:
    enum class EToken : char {
        TEXT,
        DATE,
        TIME,
        PID,
        APPNAME,
        LEVEL_NAME,
        LEVEL_NUMBER,
        THREAD,
        COMPONENT,
        FUNCTION,
        FUNCTION_PREFIX,
        INDENT,
        MESSAGE
    };
    struct CItem {
        EToken token;
        std::string text;  // TEXT only
    };

    void updateClock(long long seconds);
    void count(EToken token);

    std::vector<CItem> m_items;
    // The longest line: m_fixedLength plus, per use of a text field, its length escaped.
    std::size_t m_fixedLength = 0;
    struct {
        std::size_t thread = 0, component = 0, function = 0, message = 0, appname = 0;
    } m_uses;
    bool m_utc;
    bool m_usesClock = false;
    bool m_clockValid = false;
    long long m_clockSecond = 0;  // the second that m_date and m_time show
    char m_date[11] = {};
    char m_time[9] = {};
    int m_pid = 0;  // the process id that m_pidText shows (when m_pidLength is not 0)
    char m_pidText[24] = {};
    std::size_t m_pidLength = 0;
};

// The application name for display: `appname`, or the program's own name while it is empty.
const char* displayedAppname(const std::string& appname);
