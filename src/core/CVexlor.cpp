// CVexlor instances, construction and destruction, thread names, the application name, the
// one-time syslog set-up and the component lock.
#include "core/CVexlor.h"

#include <atomic>
#include <cerrno>  // program_invocation_short_name
#include <libgen.h>
#include <syslog.h>

#include "core/LegacyLevel.h"
#include "core/buildPaths.h"

namespace {

// Set once the one-time syslog set-up has run; shared by both instances.
std::atomic<bool> syslogReady{false};

void setUpSyslogOnce()
{
    bool expected = false;
    if (!syslogReady.compare_exchange_strong(expected, true)) {
        return;
    }
    openlog(basename(program_invocation_short_name), LOG_PID | LOG_NDELAY, LOG_USER);
    vx::applyLegacyLevelFile();
}

}  // namespace

thread_local CVexlor::CThreadData CVexlor::thread_data;

CVexlor::CVexlor(bool enableConfig)
    : m_container(VEXLOR_CONFIG_DIR, enableConfig, this)
{
    m_appname = "[no-appname-set]";
}

CVexlor::~CVexlor()
{
    // Members go in reverse order: m_container first (it ends the worker and unloads the
    // targets). The component records themselves stay allocated: applications may still hold them.
}

CVexlor* CVexlor::getInstance()
{
    static CVexlor instance(true);
    return &instance;
}

CVexlor* CVexlor::getInstance_NoVexlor()
{
    static CVexlor instance(false);
    return &instance;
}

void CVexlor::init(vexlor_component* component, const char* name, bool announce)
{
    setUpSyslogOnce();
    thread_data.threadName = name;
    if (component != nullptr && announce) {
        vexlor(component, VX_ENTERLEAVE, "----- Thread %s started.", name);
    }
}

void CVexlor::done(vexlor_component* component)
{
    vexlor(component, VX_ENTERLEAVE, "----- Thread %s ending.", thread_data.threadName.c_str());
    thread_data.threadName = "<thrd done>";
}

const char* CVexlor::setApplicationname(const std::string& name)
{
    setApplicationname_Novexlor(name);
    m_container.setAppname(name);
    return m_appname.c_str();
}

const char* CVexlor::setApplicationname_Novexlor(const std::string& name)
{
    m_appname = name;
    openlog(m_appname.c_str(), LOG_PID | LOG_NDELAY, LOG_USER);
    return m_appname.c_str();
}

const std::string& CVexlor::getAppname() const
{
    return m_appname;
}

// The one lock order of the library: the container's mutex first, the component registry's
// second. Component creation announces components to the targets (which needs the container's
// mutex) while it holds the registry, and a configuration read sets component levels (which
// needs the registry) while it holds the container's mutex. Taking the container's mutex here,
// before the registry's, makes every path acquire the two in the same order; both are recursive,
// so the inner re-entries never block.
void CVexlor::lockComponents()
{
    m_container.lock();
    try {
        m_componentsMutex.lock();
    } catch (...) {
        m_container.unlock();
        throw;
    }
}

void CVexlor::unlockComponents()
{
    m_componentsMutex.unlock();
    m_container.unlock();
}
