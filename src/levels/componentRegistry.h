// Registry queries that the exported functions make under the registry lock.
#pragma once

#include <string>

#include <vexlor/vexlor.h>

class CVexlor;

namespace vx {

vexlor_component* lockedComponentByName(CVexlor& core, const std::string& name);
// 0 for an unknown name, like a component whose mask is 0.
unsigned int lockedComponentLevel(CVexlor& core, const std::string& name);

}  // namespace vx
