// CVexlor: its instances, thread and application names, the log path and everything that makes
// records (messages, the syslog-style call, tracing, dumps). Components go to the registry.
#include "core/CVexlor.h"

#include <atomic>
#include <cerrno>  // program_invocation_short_name
#include <cstdio>
#include <deque>
#include <libgen.h>
#include <sys/time.h>
#include <syslog.h>

#include "base/buildPaths.h"
#include "base/diag.h"
#include "base/processId.h"
#include "core/CInstanceSlot.h"
#include "core/legacyLevel.h"
#include "core/dumpLine.h"
#include "core/formatMessage.h"
#include "levels/levelDescriptionParser.h"
#include "levels/componentLevel.h"

namespace {

using vx::MESSAGE_BUFFER_SIZE;

// Set once the one-time syslog set-up has run; shared by both instances.
std::atomic<bool> syslogReady{false};

void setUpSyslogOnce()
{
    bool expected = false;
    if (syslogReady.compare_exchange_strong(expected, true)) {
        vx::openSyslog(basename(program_invocation_short_name));
        vx::applyLegacyLevelFile();
    }
}

// The thread start and end lines, cut like every message.
std::size_t cutLength(const std::string& text)
{
    return text.size() < MESSAGE_BUFFER_SIZE ? text.size() : MESSAGE_BUFFER_SIZE - 1;
}

}  // namespace

namespace vx {

// The texts of the records a thread is emitting. They keep their capacity, so an ordinary record
// allocates nothing.
struct CRecordTexts {
    CRecordTexts() { message.reserve(MESSAGE_BUFFER_SIZE); }
    std::string message;
    std::string function;
};

struct CEmitting {
    explicit CEmitting(CVexlor::CThreadData& owner)
        : self(owner)
    {
    }
    CVexlor::CThreadData& self;  // the thread's record, reached from here without a lookup of its own
    CRecordTexts outermost;  // nearly every record
    // One entry per record that a target logs from inside its own call; a deque, so that an entry
    // never moves while an outer delivery still hands it out.
    std::deque<CRecordTexts> nested;
    std::size_t depth = 0;  // records of this thread under delivery

    CRecordTexts& current()
    {
        if (depth == 0) {
            return outermost;
        }
        if (depth > nested.size()) {
            nested.emplace_back();
        }
        return nested[depth - 1];
    }
};

}  // namespace vx

namespace {

using vx::CEmitting;
using vx::CRecordTexts;

// The log path reaches the thread's state through this pointer alone: a thread-local with a
// constant initialiser needs no guard, so a record costs one TLS lookup (a call in a shared
// library) instead of one for the guard and one for each object.
thread_local CEmitting* emittingHere = nullptr;

thread_local CVexlor* mainConstructingHere = nullptr;
thread_local CVexlor* noVexlorConstructingHere = nullptr;

}  // namespace

thread_local CVexlor::CThreadData CVexlor::thread_data;

namespace {

__attribute__((noinline)) CEmitting& firstEmitting()
{
    thread_local CEmitting emitting(CVexlor::thread_data);
    emittingHere = &emitting;
    return emitting;
}

CEmitting& currentEmitting()
{
    CEmitting* const here = emittingHere;
    return here != nullptr ? *here : firstEmitting();
}

}  // namespace

// Parsed from the empty description string like every component, so it has no descriptions.
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

// Members go in reverse order: m_container first (it ends the worker and unloads the targets).
// The component records themselves stay allocated: applications may still hold them.
CVexlor::~CVexlor() = default;

CVexlor* CVexlor::getInstance()
{
    if (CInstanceSlot::anyUnderConstruction() && mainConstructingHere != nullptr) {
        return mainConstructingHere;
    }
    static CInstanceSlot slot(true, mainConstructingHere);
    return slot.get();
}

CVexlor* CVexlor::getInstance_NoVexlor()
{
    if (CInstanceSlot::anyUnderConstruction() && noVexlorConstructingHere != nullptr) {
        return noVexlorConstructingHere;
    }
    static CInstanceSlot slot(false, noVexlorConstructingHere);
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
    if (component != nullptr && announce && vx::isEnabled(component, VX_ENTERLEAVE)) {
        const std::string text = "----- Thread " + thread_data.threadName + " started.";
        emit(component, VX_ENTERLEAVE, text.data(), cutLength(text));
    }
}

void CVexlor::done(vexlor_component* component)
{
    if (vx::isEnabled(component, VX_ENTERLEAVE)) {
        const std::string text = "----- Thread " + thread_data.threadName + " ending.";
        emit(component, VX_ENTERLEAVE, text.data(), cutLength(text));
    }
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
    vx::openSyslog(m_appname);
    return m_appname.c_str();
}

const std::string& CVexlor::getAppname() const { return m_appname; }

void CVexlor::lockComponents() { m_registry.lock(); }

void CVexlor::unlockComponents() { m_registry.unlock(); }

// Inlined into both callers: the log path is one call shorter.
__attribute__((always_inline)) inline void CVexlor::deliver(vexlor_component* component, vexlor_level* level,
                                                            CEmitting& current, CRecordTexts& texts)
{
    CThreadData& self = current.self;
    timeval now{};
    gettimeofday(&now, nullptr);
    const int pid = vx::currentPid();
    if (self.functionNames.empty()) {
        texts.function.clear();
    } else {
        texts.function = self.functionNames.front();
    }
    // Counted down on every path: the container may throw (a failed lock, a target).
    struct CNesting {
        std::size_t& depth;
        explicit CNesting(std::size_t& d)
            : depth(d)
        {
            ++depth;
        }
        ~CNesting() { --depth; }
    } nesting(current.depth);
    m_container.log(pid, self.depth, now.tv_sec, static_cast<int>(now.tv_usec), level, self.threadName, component->name,
                    texts.function, texts.message);
}

void CVexlor::log(vexlor_component* component, vexlor_level* level, const char* format, va_list args)
{
    CEmitting& current = currentEmitting();
    CRecordTexts& texts = current.current();
    vx::formatMessage(texts.message, format, args);
    deliver(component, level, current, texts);
}

void CVexlor::logToMain(vexlor_component* component, vexlor_level* level, const char* format, va_list args)
{
    getInstance()->log(component, level, format, args);
}

void CVexlor::emit(vexlor_component* component, vexlor_level* level, const char* text, std::size_t length)
{
    CEmitting& current = currentEmitting();
    CRecordTexts& texts = current.current();
    texts.message.assign(text, length);
    deliver(component, level, current, texts);
}

void CVexlor::emitIfEnabled(vexlor_component* component, vexlor_level* level, const char* text)
{
    if (vx::isEnabled(component, level)) {
        emit(component, level, text, std::char_traits<char>::length(text));
    }
}

void CVexlor::vexlorSyslog(vexlor_component* component, vexlor_level* level, const char* format, va_list args)
{
    char buffer[MESSAGE_BUFFER_SIZE];
    const std::size_t length = vx::formatMessage(buffer, format, args);
    // Unfiltered on purpose: syslog gets the text whatever the component's mask, unless a target
    // already writes the records there.
    if (!m_container.hasSyslogTarget()) {
        vx::diag(level_to_prio(level), "%s", buffer);
    }
    if (vx::isEnabled(component, level)) {
        emit(component, level, buffer, length);
    }
}

void CVexlor::enterFunction(vexlor_component* component, const char* functionName)
{
    CThreadData& self = thread_data;
    // Build the copy first: a null name throws before anything changed.
    self.functionNames.push_front(std::string(functionName));
    emitIfEnabled(component, VX_ENTERLEAVE, "entering");
    ++self.depth;
}

void CVexlor::leaveFunction(vexlor_component* component)
{
    CThreadData& self = thread_data;
    // Depth first, name last: "leaving" carries the same name and depth as "entering" did.
    --self.depth;
    emitIfEnabled(component, VX_ENTERLEAVE, "leaving");
    if (!self.functionNames.empty()) {
        self.functionNames.pop_front();
    }
}

void CVexlor::dump(vexlor_component* component, vexlor_level* level, const void* data, unsigned int length)
{
    // Filtered once before any line is formatted; each line is a record of its own, filtered
    // again like any other (the mask may change during a long dump).
    if (!vx::isEnabled(component, level)) {
        return;
    }
    if (data == nullptr) {
        emitIfEnabled(component, level, "<NULL>");
        return;
    }
    const auto* bytes = static_cast<const unsigned char*>(data);
    char line[vx::DUMP_LINE_SIZE];
    for (unsigned long long offset = 0; offset < length; offset += 16) {
        if (vx::isEnabled(component, level)) {
            const auto count = static_cast<unsigned int>(length - offset < 16 ? length - offset : 16);
            emit(component, level, line, vx::formatDumpLine(line, static_cast<unsigned int>(offset), bytes, count));
        }
    }
}

void CVexlor::formatDumpLine(std::string& line, unsigned int offset, const unsigned char* data, unsigned int count)
{
    char text[vx::DUMP_LINE_SIZE];
    line.assign(text, vx::formatDumpLine(text, offset, data, count));
}

int CVexlor::level_to_prio(vexlor_level* level)
{
    if (level == nullptr || level->numeric >= LOG_DEBUG) {
        return LOG_DEBUG;
    }
    return static_cast<int>(level->numeric);
}

vexlor_component* CVexlor::createComponent(const std::string& name, vexlor_level* level,
                                           const std::string& descriptions)
{
    vexlor_component* component = m_registry.create(name, level, descriptions);
    return component != nullptr ? component : &ms_OOMFallbackComp;
}

vexlor_component* CVexlor::getComponentByName(const std::string& name) { return m_registry.find(name); }

void CVexlor::setComponentLevel(const std::string& name, unsigned int mask) { m_registry.setLevel(name, mask); }

int CVexlor::updateComponentLevel(const std::string& name, const std::string& bits)
{
    m_registry.updateLevel(name, bits);
    return 0;
}

void CVexlor::getComponentNames(std::vector<std::string>& names) { m_registry.appendNames(names); }

void CVexlor::getLevelDescriptions(const std::string& name,
                                   std::vector<std::pair<unsigned int, std::string>>& descriptions)
{
    m_registry.appendDescriptions(name, descriptions);
}
