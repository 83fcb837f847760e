// What every shipped target that writes records shares: levels= and rate=/burst= checked before a
// record is formatted, the rate limit's notices, and the identity a syslog-style receiver shows. A
// target derives from CFilteredTarget, gives its write, and is created as CFiltered<itself>.
#pragma once

#include <cerrno>
#include <string>

#include <vexlor/vexlor_target.h>

#include "CLevelSet.h"
#include "CRateLimit.h"

class CTargetCounters;

class CFilteredTarget : public CLogTargetBase {
public:
    CFilteredTarget(const CFilteredTarget&) = delete;
    CFilteredTarget& operator=(const CFilteredTarget&) = delete;

protected:
    // Throws std::invalid_argument for a bad levels=, rate= or burst=.
    CFilteredTarget(const CLogTargetParameters& parameters, const char* kind)
        : CLogTargetBase(parameters, kind)
        , m_levels(CLevelSet::fromParameters(parameters))
        , m_rate(parameters)
    {
    }

    // Where suppressed records are counted: the target's counters come to be after this base.
    void countSuppressedInto(CTargetCounters& counters) { m_rate.countInto(counters); }

    // The application's name, else the program's short name (made once, where it is shown).
    const std::string& identity()
    {
        if (!appname().empty()) {
            return appname();
        }
        if (m_program.empty()) {
            m_program = program_invocation_short_name;
        }
        return m_program;
    }

    // Called by CFiltered without a virtual call; a target that needs them hides these.
    // Before the rate limit, whose notices go through write: false when no record can be written
    // now (a fork child without output of its own); the target counts what it does not write.
    bool ready() { return true; }
    // At unload: whether the notices can be written with the output as it is.
    bool readyAtUnload() const { return true; }

private:
    template <typename>
    friend class CFiltered;

    const CLevelSet m_levels;
    CRateLimit m_rate;
    std::string m_program;  // see identity
};

// The class that is created for `Target`: its log, and its notices at unload, which must go out
// before Target's members are destroyed (hence a class below it rather than code in the base).
// Final, so that log calls write and the hooks directly.
template <typename Target>
class CFiltered final : public Target {
public:
    using Target::Target;
    ~CFiltered() override
    {
        if (this->readyAtUnload()) {
            this->m_rate.writeNotices(*this);
        }
    }

    void log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& message) override
    {
        if (this->m_levels.contains(level) && this->ready() &&
            this->m_rate.admit(componentName, *this, pid, seconds, microseconds, threadName)) {
            this->write(pid, depth, seconds, microseconds, level, threadName, componentName, functionName, message);
        }
    }

private:
    friend class ::CRateLimit;  // writes its notices
};
