// The recorder target: every record it takes goes into a ring in a memory-mapped file of this
// process, which outlives the process, a crash included; `vexlorctl dump` reads it.
// - A record is in the ring when log returns, committed by the last store of its bytes: however
//   the process ends, the ring holds every record whose log call returned, and a record cut off
//   half-way is never shown. The file lives as long as its file system's content (/run: until
//   the machine restarts; dir= on flash: see docs/recorder.md for what that costs).
// - Creation allocates the whole file: a full file system refuses the target with one error,
//   and nothing fails later. A fork child's first record makes the child's ring; should that
//   fail, one error, a retry at most once a second, and the count of lost records at the end.
// - Per record: the copy into the mapping and a CRC-32C. No system call, no lock (the library's
//   lock serialises the calls), no thread.
// Parameters: size= (default 1M, 16K to 256M), keep= (default 3), dir= (default: see
// defaultRingDirectory), remove-on-unload= (0 or 1, default 0), levels=, rate=, burst=, name= (default "recorder").
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <syslog.h>
#include <unistd.h>
#include <vexlor/vexlor_target.h>

#include "CDescriptor.h"
#include "CFaultReport.h"
#include "CFilteredTarget.h"
#include "CLineLayout.h"
#include "CRingFile.h"
#include "CTargetCounters.h"
#include "createTarget.h"
#include "forkGeneration.h"
#include "numberParameter.h"
#include "ringDirectory.h"
#include "ringFormat.h"
#include "ringReader.h"

namespace {

class CRecorderTarget : public CFilteredTarget {
public:
    static constexpr const char* KIND = "recorder";

    explicit CRecorderTarget(const CLogTargetParameters& parameters)
        : CFilteredTarget(parameters, KIND)
        , m_size(
              byteCountParameter(parameters, "size", 1 << 20, vexlor_ring::MIN_FILE_SIZE, vexlor_ring::MAX_FILE_SIZE) &
              ~std::size_t{7})
        , m_keep(static_cast<unsigned>(numberParameter(parameters, "keep", 3, 1, 1000)))
        , m_removeOnUnload(numberParameter(parameters, "remove-on-unload", 0, 0, 1) == 1)
        , m_dir(targetParameter(parameters, "dir", defaultRingDirectory()))
        , m_counters(KIND, getName())
        , m_fault("recorder target \"" + getName() + "\"")
    {
        m_fault.countInto(m_counters);
        countSuppressedInto(m_counters);
        // Refused here rather than by the directory's opening, so that the refusal names the parameter.
        if (m_dir.empty() || m_dir[0] != '/') {
            throw std::runtime_error("dir=" + m_dir + ": not an absolute path");
        }
        m_ring = makeRing();
    }

    ~CRecorderTarget() override
    {
        if (!m_ring || !m_ring->owned()) {
            return;
        }
        // A ring without records has nothing to tell (vexlor-check --load makes such rings).
        if (m_removeOnUnload || m_ring->records() == 0) {
            CDescriptor dir(open(m_dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            m_ring->remove(dir.get());
        }
    }

    void setAppname(const std::string& name) override
    {
        CLogTargetBase::setAppname(name);
        if (!m_ring || !m_ring->owned()) {
            return;
        }
        try {
            CDescriptor dir(openRingDirectory(m_dir));
            const std::string application = applicationName();
            if (const int error = m_ring->rename(dir.get(), ringFileName(application, getpid()), application)) {
                syslog(LOG_WARNING, "recorder target \"%s\": the ring %s/%s keeps its name: %s", getName().c_str(),
                       m_dir.c_str(), m_ring->name().c_str(), std::strerror(error));
            }
            pruneRings(dir.get(), application, m_keep, m_ring->name());
        } catch (const CRingError& e) {
            syslog(LOG_WARNING, "recorder target \"%s\": %s", getName().c_str(), e.what());
        }
    }

protected:
    void write(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
               const std::string& threadName, const std::string& componentName, const std::string& functionName,
               const std::string& message)
    {
        m_busy = true;
        m_ring->append(pid, depth, seconds, microseconds, level->numeric, threadName, componentName, functionName,
                       message);
        m_busy = false;
        m_counters.add(CTargetCounters::WRITTEN);
    }

    // A signal handler that logs while this thread is inside append would interleave records.
    bool ready() { return !m_busy && ownRing(); }
    bool readyAtUnload() const { return m_generation == processGeneration() && m_ring; }

private:
    // The name in the ring's header and file name: the application's, else the program's.
    std::string applicationName() const
    {
        return std::string(displayedAppname(appname())).substr(0, vexlor_ring::header::NAME_CAPACITY);
    }

    std::unique_ptr<CRingFile> makeRing() const
    {
        CDescriptor dir(openRingDirectory(m_dir));
        const std::string application = applicationName();
        auto ring =
            std::make_unique<CRingFile>(dir.get(), m_dir, ringFileName(application, getpid()), application, m_size);
        pruneRings(dir.get(), application, m_keep, ring->name());
        return ring;
    }

    // The ring of this process: in a fork child, a new one in place of the parent's.
    bool ownRing()
    {
        if (m_generation == processGeneration() && m_ring) {
            return true;
        }
        if (m_generation != processGeneration()) {
            m_ring.reset();  // the fork handler has let go of the parent's ring already
            m_generation = processGeneration();
        }
        if (!m_fault.retryDue()) {
            m_fault.lost(1);
            return false;
        }
        try {
            m_ring = makeRing();
            m_fault.recovered();
            return true;
        } catch (const CRingError& e) {
            m_fault.setWho("recorder target \"" + getName() + "\" (forked process " + std::to_string(getpid()) + ", " +
                           e.what() + ")");
            m_fault.failed("making its ring", e.error(), 1);
        }
        return false;
    }

    const std::size_t m_size;
    const unsigned m_keep;
    const bool m_removeOnUnload;
    const std::string m_dir;
    CTargetCounters m_counters;
    CFaultReport m_fault;
    std::unique_ptr<CRingFile> m_ring;
    unsigned m_generation = processGeneration();  // the process that m_ring belongs to
    bool m_busy = false;
};

}  // namespace

VEXLOR_SHIPPED_TARGET(CFiltered<CRecorderTarget>)
