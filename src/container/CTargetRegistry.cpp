// The target registry (see CTargetRegistry.h).
#include "container/CTargetRegistry.h"

#include <cerrno>
#include <syslog.h>
#include <vexlor/vexlor_target.h>

#include "base/diag.h"
#include "container/CLogTargetContainer.h"
#include "container/targetLine.h"

namespace {

// Hands the target back to its factory, then closes its library (the target's code must not be
// unmapped while the target still exists). The entry is already out of the registry, so a
// target that logs from its destruction cannot reach itself.
void destroyTarget(CPluggableLogModule& entry)
{
    IClassFactory* factory = entry.module->getClassFactory();
    if (factory != nullptr) {
        factory->destroyObject(entry.logTarget);
    } else {
        // Without its factory the target cannot be destroyed safely: leave it allocated, close
        // the library all the same.
        vx::diag(LOG_WARNING, "logtarget-container: no classfactory in lib \"%s\" - log-target not destroyed",
                 entry.module->getLibPath().c_str());
    }
    entry.logTarget = nullptr;
    entry.module.reset();
}

}  // namespace

void CTargetRegistry::applyTargetLine(const std::string& value, const std::string& appname)
{
    CLogTargetParameters parameters;
    const std::string libPath = vx::parseTargetLine(value, appname, parameters.params);

    for (auto& entry : m_targets) {
        if (entry.second.module->getLibPath() == libPath) {
            // Reused as it is: its creation parameters stay, this line's are dropped.
            vx::diag(LOG_DEBUG, "logtarget-container: library \"%s\" already loaded", libPath.c_str());
            entry.second.configured = true;
            return;
        }
    }

    auto module = std::make_unique<CDynamicModule>(libPath);
    if (module->load(nullptr) != 0) {
        const int err = errno;
        vx::diag(LOG_ERR, "logtarget-container: Unable to load the logtarget-library \"%s\" - errno=%i(%s)",
                 libPath.c_str(), err, vx::errnoText(err));
        return;
    }
    IClassFactory* factory = module->getClassFactory();
    if (factory == nullptr) {
        vx::diag(LOG_ERR, "logtarget-container: Unable to retrieve the classfactory from lib \"%s\"", libPath.c_str());
        return;
    }
    IDynamicObject* object = factory->createObject(CLogTargetContainer::LOG_TARGET_CLASS_NAME, &parameters);
    auto* target = dynamic_cast<ILogTarget*>(object);
    if (target == nullptr) {
        vx::diag(LOG_ERR, "logtarget-container: Unable to create LogTarget from lib \"%s\"", libPath.c_str());
        if (object != nullptr) {
            factory->destroyObject(object);
        }
        return;
    }
    const std::string name = target->getName();
    if (m_targets.count(name) != 0) {
        // The first registered keeps the name; the existing entry is not marked.
        vx::diag(LOG_WARNING, "logtarget-container: Target %s already loaded, but from different path", name.c_str());
        factory->destroyObject(target);
        return;
    }
    vx::diag(LOG_DEBUG, "will load target %s from lib %s", name.c_str(), libPath.c_str());
    m_targets.emplace(name, CPluggableLogModule{std::move(module), target, true});
    rebuildOrder();
}

void CTargetRegistry::rebuildOrder()
{
    m_order.clear();
    for (auto& entry : m_targets) {
        m_order.push_back(entry.second.logTarget);
    }
}

bool CTargetRegistry::sweep()
{
    bool syslogTarget = false;
    for (auto it = m_targets.begin(); it != m_targets.end();) {
        CPluggableLogModule& entry = it->second;
        if (entry.configured) {
            // Every kept target is asked, also after one has answered 1.
            if (entry.logTarget->isSyslogTarget() == 1) {
                syslogTarget = true;
            }
            entry.configured = false;  // ready for the next read
            ++it;
            continue;
        }
        vx::diag(LOG_INFO, "logtarget-container: unloading log-target %s (and its library \"%s\")",
                 entry.logTarget->getName().c_str(), entry.module->getLibPath().c_str());
        auto node = m_targets.extract(it++);
        rebuildOrder();
        destroyTarget(node.mapped());
    }
    return syslogTarget;
}

void CTargetRegistry::releaseAll()
{
    while (!m_targets.empty()) {
        auto node = m_targets.extract(m_targets.begin());
        rebuildOrder();
        destroyTarget(node.mapped());
    }
}
