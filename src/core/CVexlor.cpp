// CVexlor instances, construction and destruction, thread names, the application name, the
// one-time syslog set-up and the component lock.
#include "core/CVexlor.h"

#include <atomic>
#include <cerrno>  // program_invocation_short_name
#include <libgen.h>
#include <syslog.h>

#include "core/LegacyLevel.h"
#include "base/buildPaths.h"
#include "levels/LevelDescriptionParser.h"

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

// Marks, for the constructing thread, the instance being built: the configured start loads
// plug-ins whose hooks and targets may call the library, which must reach the instance under
// construction instead of waiting for its own construction to end. The count keeps the
// thread-local lookup off the path of every later call (see getInstance).
std::atomic<int> constructionsUnderWay{0};

class CConstructionMark {
public:
    CConstructionMark(CVexlor* instance, CVexlor*& constructingHere) : m_here(constructingHere)
    {
        m_here = instance;
        constructionsUnderWay.fetch_add(1);
    }
    // Still active only when the construction threw. Later the thread-local must not be
    // touched: it belongs to the constructing thread, which may be gone by then.
    ~CConstructionMark() { end(); }
    CConstructionMark(const CConstructionMark&) = delete;
    CConstructionMark& operator=(const CConstructionMark&) = delete;

    void end()
    {
        if (m_active) {
            m_active = false;
            m_here = nullptr;
            constructionsUnderWay.fetch_sub(1);
        }
    }

private:
    CVexlor*& m_here;
    bool m_active = true;
};

thread_local CVexlor* mainConstructingHere = nullptr;
thread_local CVexlor* noVexlorConstructingHere = nullptr;

// An instance with the flag that says its destruction has begun. The flag is set in the
// destructor's body, before the instance is taken apart; it is trivially destructible, so
// threads that still log while the process exits can read it.
class CInstanceSlot {
public:
    CInstanceSlot(bool enableConfig, std::atomic<bool>& gone, CVexlor*& constructingHere)
        : m_gone(gone)
        , m_mark(&m_instance, constructingHere)
        , m_instance(enableConfig)
    {
        m_mark.end();
    }
    ~CInstanceSlot() { m_gone.store(true, std::memory_order_release); }
    CInstanceSlot(const CInstanceSlot&) = delete;
    CInstanceSlot& operator=(const CInstanceSlot&) = delete;

    CVexlor* get() { return m_gone.load(std::memory_order_acquire) ? standIn() : &m_instance; }

private:
    // What callers get once the instance is being destroyed: a quiet instance without
    // configuration or targets, never destroyed, so that late calls neither crash nor log.
    static CVexlor* standIn()
    {
        static CVexlor* const quiet = new CVexlor(false);
        return quiet;
    }

    std::atomic<bool>& m_gone;
    CConstructionMark m_mark;
    CVexlor m_instance;
};

std::atomic<bool> mainInstanceGone{false};
std::atomic<bool> noVexlorInstanceGone{false};

}  // namespace

thread_local CVexlor::CThreadData CVexlor::thread_data;

// Handed out when a new component cannot be allocated; every level passes. Parsed from the
// empty description string like every component, so it has no descriptions.
vexlor_component CVexlor::ms_OOMFallbackComp = [] {
    vexlor_component component{"OOM-Ohno!", 0xFFFFFFFFu, {}};
    vx::parseLevelDescriptions(component, std::string());
    return component;
}();

CVexlor::CVexlor(bool enableConfig)
    : m_container(VEXLOR_CONFIG_DIR, enableConfig, this)
{
    // Only now: the container's first configuration read above runs before any name is set.
    m_appname = "[no-appname-set]";
}

CVexlor::~CVexlor()
{
    // Members go in reverse order: m_container first (it ends the worker and unloads the
    // targets). The component records themselves stay allocated: applications may still hold them.
}

CVexlor* CVexlor::getInstance()
{
    if (constructionsUnderWay.load(std::memory_order_relaxed) != 0 && mainConstructingHere != nullptr) {
        return mainConstructingHere;
    }
    static CInstanceSlot slot(true, mainInstanceGone, mainConstructingHere);
    return slot.get();
}

CVexlor* CVexlor::getInstance_NoVexlor()
{
    if (constructionsUnderWay.load(std::memory_order_relaxed) != 0 && noVexlorConstructingHere != nullptr) {
        return noVexlorConstructingHere;
    }
    static CInstanceSlot slot(false, noVexlorInstanceGone, noVexlorConstructingHere);
    return slot.get();
}

void CVexlor::init(vexlor_component* component, const char* name, bool announce)
{
    setUpSyslogOnce();
    // A null name is a caller error: the thread keeps its name and nothing is announced.
    if (name == nullptr) {
        return;
    }
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

void CVexlor::lockComponents()
{
    m_registry.lock();
}

void CVexlor::unlockComponents()
{
    m_registry.unlock();
}

vexlor_component* CVexlor::createComponent(const std::string& name, vexlor_level* level,
                                           const std::string& descriptions)
{
    vexlor_component* component = m_registry.create(name, level, descriptions);
    return component != nullptr ? component : &ms_OOMFallbackComp;
}

vexlor_component* CVexlor::getComponentByName(const std::string& name)
{
    return m_registry.find(name);
}

void CVexlor::setComponentLevel(const std::string& name, unsigned int mask)
{
    m_registry.setLevel(name, mask);
}

int CVexlor::updateComponentLevel(const std::string& name, const std::string& bits)
{
    m_registry.updateLevel(name, bits);
    return 0;
}

void CVexlor::getComponentNames(std::vector<std::string>& names)
{
    m_registry.appendNames(names);
}

void CVexlor::getLevelDescriptions(const std::string& name,
                                   std::vector<std::pair<unsigned int, std::string>>& descriptions)
{
    m_registry.appendDescriptions(name, descriptions);
}
