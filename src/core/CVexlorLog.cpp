// The log call path: filter, format into the stack buffer, gather time, pid and the thread's
// record, hand the nine values to the container. Also the syslog-style variant.
#include <cstdio>
#include <string>
#include <sys/time.h>
#include <syslog.h>

#include "core/CVexlor.h"
#include "base/processId.h"
#include "levels/componentLevel.h"

namespace {

// Messages are cut to MESSAGE_BUFFER_SIZE - 1 characters.
constexpr std::size_t MESSAGE_BUFFER_SIZE = 2048;

// A null format is a caller error; it formats as an empty message instead of crashing.
void formatMessage(char (&buffer)[MESSAGE_BUFFER_SIZE], const char* format, va_list args)
{
    if (format == nullptr) {
        buffer[0] = '\0';
        return;
    }
    vsnprintf(buffer, sizeof buffer, format, args);
}

}  // namespace

void CVexlor::log(vexlor_component* component, vexlor_level* level, const char* format, va_list args)
{
    if (!vx::isEnabled(component, level)) {
        return;
    }
    char buffer[MESSAGE_BUFFER_SIZE];
    formatMessage(buffer, format, args);

    timeval now{};
    gettimeofday(&now, nullptr);
    const int pid = vx::currentPid();

    CThreadData& self = thread_data;
    const std::string functionName = self.functionNames.empty() ? std::string() : self.functionNames.front();
    const std::string message(buffer);
    m_container.log(pid, self.depth, now.tv_sec, static_cast<int>(now.tv_usec), level, self.threadName,
                    component->name, functionName, message);
}

void CVexlor::vexlorSyslog(vexlor_component* component, vexlor_level* level, const char* format, va_list args)
{
    char buffer[MESSAGE_BUFFER_SIZE];
    formatMessage(buffer, format, args);
    // Unfiltered on purpose: syslog gets the text whatever the component's mask, unless a target
    // already writes the records there.
    if (!m_container.hasSyslogTarget()) {
        syslog(level_to_prio(level), "%s", buffer);
    }
    vexlor(component, level, "%s", buffer);
}

int CVexlor::level_to_prio(vexlor_level* level)
{
    if (level == nullptr || level->numeric >= LOG_DEBUG) {
        return LOG_DEBUG;
    }
    return static_cast<int>(level->numeric);
}
