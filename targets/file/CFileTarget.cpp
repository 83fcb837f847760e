// The file target: appends one line per record to a file, with size rotation, a reopen after an
// external move (logrotate) and, optionally, a buffer.
// - Without buffer=, a record has reached the kernel when log returns: one write(2) per record on
//   an O_APPEND descriptor, so lines of several processes appending to one file stay whole. With
//   buffer=, records wait until the buffer fills, a record at or above flush-level= arrives, or
//   flush-ms= passed since the first unwritten one; the rest is written when the target is
//   unloaded and at normal exit. A fork child never writes its parent's buffered records.
// - A write error: one syslog error; records are counted as lost while it lasts, the next record
//   tries again, and when it works again (or at unload, if it can) one line in the file and one
//   syslog message give the count. A cut line is ended before anything else; no rotation meanwhile.
// - It opens only a regular file, follows no symbolic link at the last component, and makes or
//   reopens none in a directory another user can write (unless sticky and the file is ours); a
//   refusal is said once. Processes that share the file rotate it one at a time (a flock).
// - Per record: the layout into a stack buffer, an uncontended lock, and one write (or a copy into
//   the buffer). The path is compared with the open file once a second (one stat).
// - One thread, asleep in poll: it wakes when the log's directory changes (a move or removal to
//   notice at once) and, with buffer=, when buffered records fall due. Idle, it never wakes.
// Parameters: path= (required, may hold %a), mode=, max-size=, max-files=, buffer=, flush-level=,
// flush-ms=, pattern=, time=, levels=, name= (default "file").
#include <memory>
#include <syslog.h>
#include <unistd.h>
#include <vector>
#include <vexlor/vexlor_target.h>

#include "CFileOptions.h"
#include "CFileSink.h"
#include "CFilteredTarget.h"
#include "CLineLayout.h"
#include "CTargetCounters.h"
#include "createTarget.h"
#include "forkGeneration.h"

namespace {

// Sinks that a fork child left to its parent: never touched again, but kept reachable.
void abandon(std::unique_ptr<CFileSink>& sink)
{
    static auto* abandoned = new std::vector<CFileSink*>;
    abandoned->push_back(sink.release());
}

class CFileTarget : public CFilteredTarget {
public:
    static constexpr const char* KIND = "file";

    explicit CFileTarget(const CLogTargetParameters& parameters)
        : CFilteredTarget(parameters, KIND)
        , m_options(CFileOptions::fromParameters(parameters))
        , m_layout(CLineLayout::fromParameters(parameters))
        , m_path(expandPath(m_options.path, appname()))
        , m_counters(KIND, getName(), {"rotations", "reopens"})
        , m_sink(std::make_unique<CFileSink>(getName(), m_path, m_options, m_counters))
        , m_generation(processGeneration())
    {
        countSuppressedInto(m_counters);
    }

    ~CFileTarget() override
    {
        if (m_generation != processGeneration()) {
            abandon(m_sink);
        }
    }

    void setAppname(const std::string& name) override
    {
        CLogTargetBase::setAppname(name);
        const std::string path = expandPath(m_options.path, appname());
        if (path != m_path && ownSink()) {
            m_path = path;
            m_sink->moveTo(path);
        }
    }

protected:
    void write(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
               const std::string& threadName, const std::string& componentName, const std::string& functionName,
               const std::string& message)
    {
        CLineBuffer line;
        m_layout.format(line,
                        CLogRecord{pid, depth, seconds, microseconds, level, threadName, componentName, functionName,
                                   message, appname()});
        line.append('\n');
        m_sink->append(line.data(), line.size(), level->numeric <= m_options.flushLevel);
    }

    bool ready() { return ownSink(); }
    bool readyAtUnload() const { return m_generation == processGeneration() && m_sink; }

private:
    // The sink of this process: in a fork child the parent's is left alone and a new one opened.
    bool ownSink()
    {
        if (m_generation == processGeneration()) {
            return m_sink != nullptr;
        }
        abandon(m_sink);
        m_generation = processGeneration();
        try {
            m_sink = std::make_unique<CFileSink>(getName(), m_path, m_options, m_counters);
        } catch (const std::exception& e) {
            syslog(LOG_ERR, "file target \"%s\": in the forked process %d: %s; its records are not written",
                   getName().c_str(), static_cast<int>(getpid()), e.what());
        }
        return m_sink != nullptr;
    }

    const CFileOptions m_options;
    CLineLayout m_layout;
    std::string m_path;  // path= for the current application name
    CTargetCounters m_counters;  // before the sink, which counts into it until its end
    std::unique_ptr<CFileSink> m_sink;
    unsigned m_generation;  // the process that m_sink belongs to
};

}  // namespace

VEXLOR_SHIPPED_TARGET(CFiltered<CFileTarget>)
