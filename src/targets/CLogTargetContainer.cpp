// The container frame: construction, destruction, and the operations that reach every target
// (fan-out of records, component announcements, the application name).
#include "targets/CLogTargetContainer.h"

#include <syslog.h>
#include <system_error>
#include <vexlor/vexlor_target.h>

#include "base/diag.h"
#include "targets/CContainerLock.h"

const std::string CLogTargetContainer::LOG_TARGET_CLASS_NAME = "LogTarget";

std::string TARGET_TOKEN_APPLICATION_NAME()
{
    static const std::string token = "application-name";
    return token;
}

CLogTargetContainer::CLogTargetContainer(const std::string& cfgDirectory, bool enableConfig,
                                         IComponentCfgUpdateSink* sink)
    : m_cfgDirectory(cfgDirectory)
    , m_cfgUpdateSink(sink)
{
    if (enableConfig) {
        startWatcher();
    }
}

CLogTargetContainer::~CLogTargetContainer()
{
    stopWatcher();
    // Under the lock all the same: threads that still log while the process exits finish their
    // delivery before the targets go, and find none afterwards.
    try {
        CContainerLock guard(*this);
        releaseAllTargets();
    } catch (const std::system_error&) {
        releaseAllTargets();
    }
}

void CLogTargetContainer::log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
                              const std::string& threadName, const std::string& componentName,
                              const std::string& functionName, const std::string& message)
{
    CContainerLock guard(*this);
    for (auto& entry : m_targets) {
        entry.second.logTarget->log(pid, depth, seconds, microseconds, level, threadName, componentName,
                                    functionName, message);
    }
}

void CLogTargetContainer::onComponentAdded(vexlor_component* component)
{
    CContainerLock guard(*this);
    for (auto& entry : m_targets) {
        entry.second.logTarget->onComponentAdded(component);
    }
}

bool CLogTargetContainer::hasSyslogTarget() const
{
    return m_hasSyslogTarget.load(std::memory_order_relaxed);
}

void CLogTargetContainer::setAppname(const std::string& name)
{
    // Only the application's own thread sets the name, so this unlocked compare cannot race
    // with another writer.
    if (name == m_appname) {
        return;
    }
    {
        CContainerLock guard(*this);
        m_appname = name;
        onCfgUpdate();
        for (auto& entry : m_targets) {
            entry.second.logTarget->setAppname(m_appname);
        }
    }
    // Sent after the lock is released: the worker never waits for it here.
    if (threadNotfiyAppname() != 0) {
        vx::diag(LOG_ERR, "logtarget-container: unable to notify thread about a changed appname");
    }
}

void CLogTargetContainer::lock()
{
    m_mutex.lock();
}

void CLogTargetContainer::unlock()
{
    m_mutex.unlock();
}
