// Level description strings ("0=off,1=error") of components.
#pragma once

#include <string>

#include <vexlor/vexlor.h>

namespace vx {

// Appends one (number, description) pair per item with exactly two non-empty "="-fields.
// Malformed items are skipped silently; nothing is trimmed.
void parseLevelDescriptions(vexlor_component& component, const std::string& descriptions);

}  // namespace vx
