// The one place where a component's mask is read and written. The log path reads it without any
// lock, so it is a single 32-bit atomic access. Relaxed order is enough: the mask guards no other
// data, and a change only has to take effect for the calls that read it afterwards.
#pragma once

#include <vexlor/vexlor.h>

namespace vx {

inline unsigned int loadComponentLevel(const vexlor_component* component)
{
    return __atomic_load_n(&component->level, __ATOMIC_RELAXED);
}

inline void storeComponentLevel(vexlor_component* component, unsigned int mask)
{
    __atomic_store_n(&component->level, mask, __ATOMIC_RELAXED);
}

// The whole filter of every log call: two null tests and one AND.
inline bool isEnabled(const vexlor_component* component, const vexlor_level* level)
{
    return component != nullptr && level != nullptr && (level->mask & loadComponentLevel(component)) != 0;
}

}  // namespace vx
