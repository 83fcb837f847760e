// The container frame: construction, fan-out, the application name and the configuration read.
#include "container/CLogTargetContainer.h"

#include <syslog.h>
#include <system_error>
#include <unistd.h>
#include <vexlor/vexlor_target.h>

#include "base/diag.h"

using CContainerLock = CScopedLock<CLogTargetContainer>;

const std::string CLogTargetContainer::LOG_TARGET_CLASS_NAME = "LogTarget";

std::string TARGET_TOKEN_APPLICATION_NAME()
{
    static const std::string token = "application-name";
    return token;
}

CLogTargetContainer::CLogTargetContainer(const std::string& cfgDirectory, bool enableConfig,
                                         IComponentCfgUpdateSink* sink)
    : m_cfgDirectory(cfgDirectory)
    , m_configRead(m_link, sink)
{
    if (enableConfig) {
        startWatcher();
    }
}

CLogTargetContainer::~CLogTargetContainer()
{
    m_watcher.stop();
    // Under the lock all the same: threads that still log while the process exits finish their
    // delivery before the targets go, and find none afterwards.
    try {
        CContainerLock guard(*this);
        m_targets.releaseAll();
    } catch (const std::system_error&) {
        m_targets.releaseAll();
    }
}

void CLogTargetContainer::startWatcher()
{
    onCfgUpdate();
    if (m_watcher.openDescriptors(CConfigRead::defaultFile(m_cfgDirectory)) != 0 || m_watcher.registerEvents() != 0) {
        vx::diag(LOG_ERR,
                 "logtarget-container: unable to initialize event-handling - not worker thread will be spawned");
        return;
    }
    m_watcher.startWorker();
}

CLogTargetContainer::CBusy::~CBusy() noexcept(false)
{
    if (--m_container.m_busy == 0 && m_container.m_readPending) {
        m_container.readNow();
    }
}

void CLogTargetContainer::log(int pid, int depth, long long seconds, int microseconds, vexlor_level* level,
                              const std::string& threadName, const std::string& componentName,
                              const std::string& functionName, const std::string& message)
{
    CScopedLock<CRecursiveMutex> guard(m_mutex);  // lock() without the virtual call
    CBusy busy(*this);
    m_targets.forEach([&](ILogTarget& target) {
        target.log(pid, depth, seconds, microseconds, level, threadName, componentName, functionName, message);
    });
}

void CLogTargetContainer::onComponentAdded(vexlor_component* component)
{
    CContainerLock guard(*this);
    CBusy busy(*this);
    m_targets.forEach([component](ILogTarget& target) { target.onComponentAdded(component); });
}

bool CLogTargetContainer::hasSyslogTarget() const { return m_configRead.hasSyslogTarget(); }

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
        CBusy busy(*this);
        m_targets.forEach([this](ILogTarget& target) { target.setAppname(m_appname); });
    }
    // Sent after the lock is released: the worker never waits for it here.
    if (m_watcher.notify(CConfigWatcher::APPNAME) != 0) {
        vx::diag(LOG_ERR, "logtarget-container: unable to notify thread about a changed appname");
    }
}

void CLogTargetContainer::lock() { m_mutex.lock(); }

void CLogTargetContainer::unlock() { m_mutex.unlock(); }

void CLogTargetContainer::onCfgUpdate()
{
    CContainerLock guard(*this);
    if (m_busy > 0) {
        m_readPending = true;  // started from inside a target: runs when the outermost call ends
        return;
    }
    readNow();
}

void CLogTargetContainer::readNow()
{
    do {
        m_readPending = false;
        CBusy busy(*this);
        m_configRead.run(m_cfgDirectory, m_appname);
    } while (m_readPending);
}

int CLogTargetContainer::CLink::onTargetLine(const std::string& /*key*/, const std::string& value)
{
    m_container.m_targets.applyTargetLine(value, m_container.m_appname);
    return 0;
}

std::string CLogTargetContainer::CLink::appConfigFile()
{
    // setAppname writes the name under the lock on another thread.
    CContainerLock guard(m_container);
    return CConfigRead::appFile(m_container.m_cfgDirectory, m_container.m_appname);
}
