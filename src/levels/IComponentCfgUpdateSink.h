// The interface through which a configuration read sets component levels in the core.
#pragma once

#include <string>

#include <vexlor/vexlor.h>

class VEXLOR_API IComponentCfgUpdateSink {
public:
    // Sets the mask of component `name` from `bits` ("1" = set, anything else = clear, most
    // significant first), creating the component if needed. 0 when the level was applied.
    virtual int updateComponentLevel(const std::string& name, const std::string& bits) = 0;

protected:
    ~IComponentCfgUpdateSink() = default;  // never deleted through this interface
};
