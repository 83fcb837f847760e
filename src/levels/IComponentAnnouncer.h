// What the component registry needs from the layer that delivers to the targets: the lock that is
// always taken before the registry's own, and the announcement of a new or changed component.
#pragma once

#include <vexlor/vexlor.h>

#include "base/ILockable.h"

class IComponentAnnouncer : public ILockable {
public:
    // Called with both locks held.
    virtual void announce(vexlor_component* component) = 0;

protected:
    ~IComponentAnnouncer() = default;
};
