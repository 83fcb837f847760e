// The process-wide logging object: the main instance (configuration, targets, watcher) and the
// NoVexlor instance (syslog side only). Its members are the binary interface; the component
// registry (src/levels) and the target container (src/container) do most of the work.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include <vexlor/vexlor.h>

#include "base/visibility.h"
#include "levels/CComponentRegistry.h"
#include "levels/IComponentCfgUpdateSink.h"
#include "container/CLogTargetContainer.h"

namespace vx {
struct CEmitting;  // the texts of the records a thread is emitting (CVexlor.cpp)
struct CRecordTexts;  // the texts of one record under delivery (CVexlor.cpp)
}  // namespace vx

class VEXLOR_API CVexlor final : public IComponentCfgUpdateSink {
public:
    // Each thread's own record, built on its first use and destroyed when the thread ends.
    struct CThreadData {
        std::deque<std::string> functionNames;  // innermost traced function at the front
        int depth = 0;  // function nesting depth
        std::string threadName{"<no name>"};
    };
    static thread_local CThreadData thread_data;

    // Handed out by createComponent when a new component cannot be allocated; every level passes.
    static vexlor_component ms_OOMFallbackComp;

    explicit CVexlor(bool enableConfig);
    ~CVexlor();
    CVexlor(const CVexlor&) = delete;
    CVexlor& operator=(const CVexlor&) = delete;

    static CVexlor* getInstance();
    static CVexlor* getInstance_NoVexlor();

    // Thread names, the application name, the component lock.
    void init(vexlor_component* component, const char* name, bool announce);
    void done(vexlor_component* component);
    // The name is set from one thread (normally at start-up); m_appname is read without a lock.
    const char* setApplicationname(const std::string& name);
    const char* setApplicationname_Novexlor(const std::string& name);
    const std::string& getAppname() const;
    void lockComponents();
    void unlockComponents();

    // Records: messages, the syslog-style call, function tracing and hex dumps. `log` formats and
    // emits a record its caller has already let through the component's mask.
    void log(vexlor_component* component, vexlor_level* level, const char* format, va_list args)
        __attribute__((format(printf, 4, 0)));
    // getInstance()->log(...) in one call: the instance look-up is inlined here.
    VEXLOR_LOCAL static void logToMain(vexlor_component* component, vexlor_level* level, const char* format,
                                       va_list args) __attribute__((format(printf, 3, 0)));
    void vexlorSyslog(vexlor_component* component, vexlor_level* level, const char* format, va_list args)
        __attribute__((format(printf, 4, 0)));
    void enterFunction(vexlor_component* component, const char* functionName);
    void leaveFunction(vexlor_component* component);
    void dump(vexlor_component* component, vexlor_level* level, const void* data, unsigned int length);
    static void formatDumpLine(std::string& line, unsigned int offset, const unsigned char* data, unsigned int count);

    static int level_to_prio(vexlor_level* level);

    // The component registry: forwarders to m_registry.
    vexlor_component* createComponent(const std::string& name, vexlor_level* level, const std::string& descriptions);
    // The caller holds the registry lock (lockComponents).
    vexlor_component* getComponentByName(const std::string& name);
    void setComponentLevel(const std::string& name, unsigned int mask);
    int updateComponentLevel(const std::string& name, const std::string& bits) override;
    void getComponentNames(std::vector<std::string>& names);
    void getLevelDescriptions(const std::string& name, std::vector<std::pair<unsigned int, std::string>>& descriptions);

    VEXLOR_LOCAL CComponentRegistry& components() { return m_registry; }

private:
    // The one step every record takes after the filter: time, pid, the thread's record, the
    // container. `text` is the finished message.
    VEXLOR_LOCAL void emit(vexlor_component* component, vexlor_level* level, const char* text, std::size_t length);
    // What emit and log share once the message is in `texts`, this thread's current texts.
    VEXLOR_LOCAL void deliver(vexlor_component* component, vexlor_level* level, vx::CEmitting& current,
                              vx::CRecordTexts& texts);
    // Filter, then emit: for the library's own fixed texts.
    VEXLOR_LOCAL void emitIfEnabled(vexlor_component* component, vexlor_level* level, const char* text);

    // The registry announces components through the container, and takes the container's lock
    // before its own (the one lock order, see CComponentRegistry::lock).
    class VEXLOR_LOCAL CContainerLink final : public IComponentAnnouncer {
    public:
        explicit CContainerLink(CLogTargetContainer& container)
            : m_container(container)
        {
        }
        void lock() override { m_container.lock(); }
        void unlock() override { m_container.unlock(); }
        void announce(vexlor_component* component) override { m_container.onComponentAdded(component); }

    private:
        CLogTargetContainer& m_container;
    };

    CContainerLink m_link{m_container};  // refers to m_container before it is built: used only after
    CComponentRegistry m_registry{m_link};
    std::string m_appname;  // written only by the thread that names the application
    CLogTargetContainer m_container;
};
