// Creation of a shipped target: the text of what its constructor throws is prefixed with the
// target's kind and name (name= or, by default, the kind), so the one syslog line names the
// target, the parameter and the value.
#pragma once

#include <stdexcept>
#include <string>

#include <vexlor/vexlor_target.h>

template <typename Target>
ILogTarget* createTarget(const CLogTargetParameters& parameters, const char* kind)
{
    try {
        return new Target(parameters);
    } catch (const std::exception& e) {
        throw std::runtime_error(std::string(kind) + " target \"" + targetParameter(parameters, "name", kind) +
                                 "\": " + e.what());
    }
}
