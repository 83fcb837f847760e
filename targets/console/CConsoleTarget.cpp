// The console target: one line per record on standard error or standard output, coloured by level
// on a terminal.
// - A record has reached the stream (the kernel) when log returns: one write(2) per record, so the
//   lines of threads and processes never interleave (on a pipe, lines up to PIPE_BUF bytes). A
//   reader that stops reading (a pager left open, a stopped terminal) makes that write wait, as a
//   terminal does for every program: the file target is the one that never waits for a reader.
// - A write error (a closed pipe, a full disk behind a redirection): one syslog error when it
//   starts; records are dropped and counted, a write is retried at most once a second, and one
//   message gives the count when writing works again or the target is unloaded. A closed pipe
//   never raises SIGPIPE.
// - Per record: the layout into a stack buffer and one write (on a pipe, two sigmask calls more).
//   No thread.
// Parameters: stream=stderr|stdout (default stderr), color=auto|always|never (default auto),
// pattern=, time=, levels=, name= (default "console").
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <unistd.h>
#include <vexlor/vexlor_target.h>

#include "CConsoleStream.h"
#include "CFaultReport.h"
#include "CLineLayout.h"
#include "CFilteredTarget.h"
#include "CTargetCounters.h"
#include "createTarget.h"

namespace {

const char RESET[] = "\033[0m";

// Severe levels stand out; debug and trace recede. Empty: the terminal's own colour.
const char* levelColour(const vexlor_level* level)
{
    static const char* const COLOURS[] = {"\033[1;31m", "\033[1;31m", "\033[1;31m", "\033[31m", "\033[33m",
                                          "\033[1m",    "",           "\033[2m",    "\033[36m"};
    return level->numeric < sizeof COLOURS / sizeof COLOURS[0] ? COLOURS[level->numeric] : "";
}

int streamDescriptor(const std::string& stream)
{
    if (stream == "stderr" || stream == "stdout") {
        return stream == "stderr" ? STDERR_FILENO : STDOUT_FILENO;
    }
    throw std::invalid_argument("stream=" + stream + ": not stderr or stdout");
}

// auto: a terminal whose TERM is set and not "dumb", and NO_COLOR unset or empty.
bool useColour(const std::string& mode, int fd)
{
    if (mode == "always" || mode == "never") {
        return mode == "always";
    }
    if (mode != "auto") {
        throw std::invalid_argument("color=" + mode + ": not auto, always or never");
    }
    const char* term = std::getenv("TERM");
    const char* noColour = std::getenv("NO_COLOR");
    return isatty(fd) == 1 && term != nullptr && *term != '\0' && std::strcmp(term, "dumb") != 0 &&
        (noColour == nullptr || *noColour == '\0');
}

class CConsoleTarget : public CFilteredTarget {
public:
    static constexpr const char* KIND = "console";

    explicit CConsoleTarget(const CLogTargetParameters& parameters)
        : CFilteredTarget(parameters, KIND)
        , m_layout(CLineLayout::fromParameters(parameters))
        , m_stream(streamDescriptor(targetParameter(parameters, "stream", "stderr")))
        , m_colour(useColour(targetParameter(parameters, "color", "auto"), m_stream.fd()))
        , m_counters(KIND, getName())
        , m_fault("console target \"" + getName() + "\" (" + targetParameter(parameters, "stream", "stderr") + ")")
    {
        m_fault.countInto(m_counters);
        countSuppressedInto(m_counters);
    }

protected:
    void write(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
               const std::string& threadName, const std::string& componentName, const std::string& functionName,
               const std::string& message)
    {
        if (!m_fault.retryDue()) {
            m_fault.lost(1);
            return;
        }
        CLineBuffer line;
        const char* colour = m_colour ? levelColour(level) : "";
        line.append(colour);
        m_layout.format(line,
                        CLogRecord{pid, depth, seconds, microseconds, level, threadName, componentName, functionName,
                                   message, appname()});
        if (*colour != '\0') {
            line.append(RESET, sizeof RESET - 1);
        }
        line.append('\n');
        if (const int error = m_stream.write(line.data(), line.size())) {
            m_fault.failed("write", error, 1);
        } else {
            m_counters.add(CTargetCounters::WRITTEN);
            m_fault.recovered();
        }
    }

private:
    CLineLayout m_layout;
    CConsoleStream m_stream;
    const bool m_colour;
    CTargetCounters m_counters;
    CFaultReport m_fault;
};

}  // namespace

VEXLOR_SHIPPED_TARGET(CFiltered<CConsoleTarget>)
