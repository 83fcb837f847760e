// The component registry: creation, lookup, masks and level descriptions, each under the lock.
#include "levels/CComponentRegistry.h"

#include <new>
#include <syslog.h>

#include "base/diag.h"
#include "levels/levelDescriptionParser.h"
#include "levels/componentLevel.h"

using CRegistryLock = CScopedLock<CComponentRegistry>;

void CComponentRegistry::lock()
{
    m_announcer.lock();
    try {
        m_mutex.lock();
    } catch (...) {
        m_announcer.unlock();
        throw;
    }
}

void CComponentRegistry::unlock()
{
    m_mutex.unlock();
    m_announcer.unlock();
}

vexlor_component* CComponentRegistry::create(const std::string& name, vexlor_level* level,
                                             const std::string& descriptions)
{
    CRegistryLock guard(*this);
    if (vexlor_component* known = find(name)) {
        // Asked for again: descriptions are appended, the mask stays as it is.
        vx::parseLevelDescriptions(*known, descriptions);
        m_announcer.announce(known);
        return known;
    }
    auto* component = new (std::nothrow) vexlor_component;
    if (component == nullptr) {
        return nullptr;
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
    m_announcer.announce(component);
    return component;
}

void CComponentRegistry::updateLevel(const std::string& name, const std::string& bits)
{
    const unsigned int mask = maskFromBits(bits);
    CRegistryLock guard(*this);
    if (vexlor_component* component = find(name)) {
        vx::diag(LOG_DEBUG, "Updating level for existing component %s (old level: 0x%x, new level: 0x%x", name.c_str(),
                 vx::loadComponentLevel(component), mask);
        vx::storeComponentLevel(component, mask);
        m_announcer.announce(component);
        return;
    }
    vx::diag(LOG_DEBUG, "Creating new component %s (level=0x%x)", name.c_str(), mask);
    // Carries the mask into create only; never entered in the level store.
    vexlor_level configured{0, mask};
    create(name, &configured, std::string());
}

void CComponentRegistry::setLevel(const std::string& name, unsigned int mask)
{
    CRegistryLock guard(*this);
    if (vexlor_component* component = find(name)) {
        vx::storeComponentLevel(component, mask);
    }
}

vexlor_component* CComponentRegistry::find(const std::string& name) const
{
    const auto found = m_components.find(name);
    return found != m_components.end() ? found->second : nullptr;
}

vexlor_component* CComponentRegistry::findLocked(const std::string& name)
{
    CRegistryLock guard(*this);
    return find(name);
}

unsigned int CComponentRegistry::levelOf(const std::string& name)
{
    CRegistryLock guard(*this);
    const vexlor_component* component = find(name);
    return component != nullptr ? vx::loadComponentLevel(component) : 0u;
}

void CComponentRegistry::appendNames(std::vector<std::string>& names)
{
    CRegistryLock guard(*this);
    for (const auto& entry : m_components) {
        names.push_back(entry.first);
    }
}

void CComponentRegistry::appendDescriptions(const std::string& name,
                                            std::vector<std::pair<unsigned int, std::string>>& descriptions)
{
    CRegistryLock guard(*this);
    if (const vexlor_component* component = find(name)) {
        descriptions.insert(descriptions.end(), component->levelDescriptions.begin(),
                            component->levelDescriptions.end());
    }
}

unsigned int CComponentRegistry::maskFromBits(const std::string& bits)
{
    unsigned int mask = 0;
    for (const char c : bits) {
        mask = (mask << 1) | (c == '1' ? 1u : 0u);
    }
    return mask;
}
