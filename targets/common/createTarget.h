// Creation of a shipped target, whose class names its kind in KIND (also its default name): the
// text of what its constructor throws is prefixed with the kind and the name (name= or, by
// default, the kind), so the one syslog line names the target, the parameter and the value.
#pragma once

#include <stdexcept>
#include <string>

#include <vexlor/vexlor_target.h>

template <typename Target>
ILogTarget* createTarget(const CLogTargetParameters& parameters)
{
    const char* const kind = Target::KIND;
    try {
        return new Target(parameters);
    } catch (const std::exception& e) {
        throw std::runtime_error(std::string(kind) + " target \"" + targetParameter(parameters, "name", kind) +
                                 "\": " + e.what());
    }
}

// The export of a shipped target's plug-in, the last line of its file: VEXLOR_SHIPPED_TARGET(CMyTarget).
// Its factory makes the target through createTarget.
#define VEXLOR_SHIPPED_TARGET(Target)                                                                                  \
    namespace {                                                                                                        \
    struct CShipped {                                                                                                  \
        static ILogTarget* create(const CLogTargetParameters& parameters) { return createTarget<Target>(parameters); } \
    };                                                                                                                 \
    }                                                                                                                  \
    VEXLOR_TARGET_PLUGIN(CShipped)
