// The component registry of a CVexlor: creation, lookup, masks and level descriptions. Every
// operation holds the registry lock (lockComponents, which also fixes the lock order).
#include <new>
#include <syslog.h>

#include "core/CVexlor.h"
#include "base/diag.h"
#include "levels/LevelDescriptionParser.h"
#include "levels/componentLevel.h"
#include "levels/componentRegistry.h"

namespace {

class CComponentsGuard {
public:
    explicit CComponentsGuard(CVexlor& core) : m_core(core) { m_core.lockComponents(); }
    ~CComponentsGuard() { m_core.unlockComponents(); }
    CComponentsGuard(const CComponentsGuard&) = delete;
    CComponentsGuard& operator=(const CComponentsGuard&) = delete;

private:
    CVexlor& m_core;
};

// Most significant character first; every character other than "1" is a clear bit, and of a
// longer string only the last 32 characters remain in the 32-bit value.
unsigned int bitsToMask(const std::string& bits)
{
    unsigned int mask = 0;
    for (const char c : bits) {
        mask = (mask << 1) | (c == '1' ? 1u : 0u);
    }
    return mask;
}

}  // namespace

vexlor_component* CVexlor::createComponent(const std::string& name, vexlor_level* level,
                                           const std::string& descriptions)
{
    CComponentsGuard guard(*this);
    const auto found = m_components.find(name);
    if (found != m_components.end()) {
        // Asked for again: descriptions are appended, the mask stays as it is.
        vx::parseLevelDescriptions(*found->second, descriptions);
        m_container.onComponentAdded(found->second);
        return found->second;
    }
    auto* component = new (std::nothrow) vexlor_component;
    if (component == nullptr) {
        return &ms_OOMFallbackComp;
    }
    try {
        component->name = name;
        component->level = level != nullptr ? level->mask : 0u;
        vx::parseLevelDescriptions(*component, descriptions);
        m_components.emplace(name, component);
    } catch (...) {
        delete component;  // not registered yet: nobody else can hold it
        throw;
    }
    m_container.onComponentAdded(component);
    return component;
}

vexlor_component* CVexlor::getComponentByName(const std::string& name)
{
    const auto found = m_components.find(name);
    return found != m_components.end() ? found->second : nullptr;
}

void CVexlor::setComponentLevel(const std::string& name, unsigned int mask)
{
    CComponentsGuard guard(*this);
    if (vexlor_component* component = getComponentByName(name)) {
        vx::storeComponentLevel(component, mask);
    }
}

int CVexlor::updateComponentLevel(const std::string& name, const std::string& bits)
{
    const unsigned int mask = bitsToMask(bits);
    CComponentsGuard guard(*this);
    if (vexlor_component* component = getComponentByName(name)) {
        vx::diag(LOG_DEBUG, "Updating level for existing component %s (old level: 0x%x, new level: 0x%x",
                     name.c_str(), vx::loadComponentLevel(component), mask);
        vx::storeComponentLevel(component, mask);
        m_container.onComponentAdded(component);
    } else {
        vx::diag(LOG_DEBUG, "Creating new component %s (level=0x%x)", name.c_str(), mask);
        // Carries the mask into createComponent only; never entered in the level store.
        vexlor_level configured{0, mask};
        createComponent(name, &configured, std::string());
    }
    return 0;
}

void CVexlor::getComponentNames(std::vector<std::string>& names)
{
    CComponentsGuard guard(*this);
    for (const auto& entry : m_components) {
        names.push_back(entry.first);
    }
}

void CVexlor::getLevelDescriptions(const std::string& name,
                                   std::vector<std::pair<unsigned int, std::string>>& descriptions)
{
    CComponentsGuard guard(*this);
    if (const vexlor_component* component = getComponentByName(name)) {
        descriptions.insert(descriptions.end(), component->levelDescriptions.begin(),
                            component->levelDescriptions.end());
    }
}

namespace vx {

vexlor_component* lockedComponentByName(CVexlor& core, const std::string& name)
{
    CComponentsGuard guard(core);
    return core.getComponentByName(name);
}

unsigned int lockedComponentLevel(CVexlor& core, const std::string& name)
{
    CComponentsGuard guard(core);
    const vexlor_component* component = core.getComponentByName(name);
    return component != nullptr ? loadComponentLevel(component) : 0u;
}

}  // namespace vx
