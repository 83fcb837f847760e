// The component registry of one CVexlor: components by name, their masks and level descriptions.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <vexlor/vexlor.h>

#include "base/CRecursiveMutex.h"
#include "levels/IComponentAnnouncer.h"

class CComponentRegistry {
public:
    explicit CComponentRegistry(IComponentAnnouncer& announcer)
        : m_announcer(announcer)
    {
    }
    CComponentRegistry(const CComponentRegistry&) = delete;
    CComponentRegistry& operator=(const CComponentRegistry&) = delete;

    // The one lock order of the library: the announcer's lock (the target container's) first,
    // the registry's second. Creation announces components to the targets, which needs the
    // container's lock, while it holds the registry; a configuration read sets masks, which needs
    // the registry, while it holds the container's lock. Taking the container's lock here first
    // makes every path acquire the two in the same order; both are recursive, so the inner
    // re-entries never block. Throws std::system_error when a lock fails.
    void lock();
    void unlock();

    // The registered component, or a new one with `level`'s mask (0 for null); descriptions are
    // appended and the component announced either way. Null only when the new record cannot be
    // allocated (nothing registered then).
    vexlor_component* create(const std::string& name, vexlor_level* level, const std::string& descriptions);
    // Sets the mask from a bit string, creating the component if needed, with debug messages.
    void updateLevel(const std::string& name, const std::string& bits);
    // Unknown names are ignored; nothing is announced.
    void setLevel(const std::string& name, unsigned int mask);

    // The caller holds the lock.
    vexlor_component* find(const std::string& name) const;
    // Under the lock: the component or null; its mask or 0.
    vexlor_component* findLocked(const std::string& name);
    unsigned int levelOf(const std::string& name);
    // Append to the caller's vector, never clear it.
    void appendNames(std::vector<std::string>& names);
    void appendDescriptions(const std::string& name, std::vector<std::pair<unsigned int, std::string>>& descriptions);

    // "1" is a set bit, anything else a clear one, most significant first; of a longer string
    // only the last 32 characters remain.
    static unsigned int maskFromBits(const std::string& bits);

private:
    IComponentAnnouncer& m_announcer;
    CRecursiveMutex m_mutex{vx::LockRank::COMPONENTS};  // recursive: updateLevel creates under it
    // Guarded by m_mutex, as are writes to the records' masks and descriptions. The records are
    // never freed: applications keep their handles for the life of the process.
    std::map<std::string, vexlor_component*> m_components;
};
