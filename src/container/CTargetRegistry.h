// The registry of loaded targets: a `target` line loads, marks or refuses a plug-in; the sweep
// after a successful configuration read unloads what the read no longer named; at the end every
// target is handed back to its factory and its library closed. The container's lock guards it.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "container/CDynamicModule.h"

class ILogTarget;

// One entry of the target registry.
struct CPluggableLogModule {
    std::unique_ptr<CDynamicModule> module;  // the target's plug-in library
    ILogTarget* logTarget = nullptr;  // handed back to module's factory exactly once
    bool configured = false;  // named by the configuration read under way
};

class CTargetRegistry {
public:
    CTargetRegistry() = default;
    ~CTargetRegistry() { releaseAll(); }
    CTargetRegistry(const CTargetRegistry&) = delete;
    CTargetRegistry& operator=(const CTargetRegistry&) = delete;

    // One `target` value (already trimmed); the application name goes to the new target's
    // parameters. Every outcome is reported to syslog only.
    void applyTargetLine(const std::string& value, const std::string& appname);
    // Unloads the unmarked entries and clears the marks; true when a kept target writes to syslog.
    bool sweep();
    // Hands every target back, silently.
    void releaseAll();

    // Calls `call(target)` for every target, in byte-wise order of the target names. The registry
    // does not change meanwhile: the container defers configuration reads that a target starts.
    template <typename Call>
    void forEach(Call call)
    {
        for (ILogTarget* target : m_order) {
            call(*target);
        }
    }

private:
    // After every change of m_targets, before anything else can call into a target.
    void rebuildOrder();

    std::map<std::string, CPluggableLogModule> m_targets;  // keyed by the name the target reports
    std::vector<ILogTarget*> m_order;  // m_targets' targets in its order: the fan-out walks no tree
};
