// The process-wide store of level records: appends only, records never move or change.
#pragma once

#include <vexlor/vexlor.h>

namespace vx {

// Appends a record with the given number and mask and returns it. Throws std::system_error when
// the store's mutex cannot be locked and std::bad_alloc when the record cannot be allocated.
vexlor_level* allocLevel(unsigned int numeric, unsigned int mask);

// A new record with mask 1 << numeric, or 0 for numbers from 32 on (such a level never passes).
vexlor_level* createLevel(unsigned int numeric);

}  // namespace vx
