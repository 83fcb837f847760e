// The process-wide logging object: the main instance (configuration, targets, watcher) and the
// NoVexlor instance (syslog side only), the log path, tracing, dumps and the component registry.
#pragma once

#include <cstdarg>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <vexlor/vexlor.h>

#include "base/CRecursiveMutex.h"
#include "levels/IComponentCfgUpdateSink.h"
#include "targets/CLogTargetContainer.h"

class VEXLOR_API CVexlor final : public IComponentCfgUpdateSink {
public:
    // Each thread's own record, built on its first log call and destroyed when it ends.
    struct CThreadData {
        std::deque<std::string> functionNames;  // innermost traced function at the front
        int depth = 0;                          // function nesting depth
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

    // Lifecycle and names (CVexlor.cpp).
    void init(vexlor_component* component, const char* name, bool announce);
    void done(vexlor_component* component);
    const char* setApplicationname(const std::string& name);
    const char* setApplicationname_Novexlor(const std::string& name);
    const std::string& getAppname() const;
    void lockComponents();
    void unlockComponents();

    // The log path (CVexlorLog.cpp).
    void log(vexlor_component* component, vexlor_level* level, const char* format, va_list args);
    void vexlorSyslog(vexlor_component* component, vexlor_level* level, const char* format, va_list args);

    // Function tracing and hex dumps (CVexlorTrace.cpp, CVexlorDump.cpp).
    void enterFunction(vexlor_component* component, const char* functionName);
    void leaveFunction(vexlor_component* component);
    void dump(vexlor_component* component, vexlor_level* level, const void* data, unsigned int length);
    static void formatDumpLine(std::string& line, unsigned int offset, const unsigned char* data, unsigned int count);

    static int level_to_prio(vexlor_level* level);

    // The component registry (src/levels/CVexlorComponents.cpp).
    vexlor_component* createComponent(const std::string& name, vexlor_level* level, const std::string& descriptions);
    // The caller holds the registry lock (lockComponents).
    vexlor_component* getComponentByName(const std::string& name);
    void setComponentLevel(const std::string& name, unsigned int mask);
    int updateComponentLevel(const std::string& name, const std::string& bits) override;
    void getComponentNames(std::vector<std::string>& names);
    void getLevelDescriptions(const std::string& name, std::vector<std::pair<unsigned int, std::string>>& descriptions);

private:
    std::map<std::string, vexlor_component*> m_components;  // guarded by m_componentsMutex
    CRecursiveMutex m_componentsMutex;                      // see lockComponents for the lock order
    std::string m_appname;
    CLogTargetContainer m_container;
};
