// Calendar time of a record without the C library's time-zone lock: gmtime_r and localtime_r take
// a lock that a fork child inherits locked when another thread of the parent was converting a time
// at that moment (a sender thread does so all the time), and the child's first conversion then
// waits for ever.
#pragma once

#include <ctime>

namespace vx {

// Fills year, month, day, hour, minute, second and tm_gmtoff of `parts` for `seconds` since the
// epoch, in UTC or local time. UTC takes no lock; local time asks localtime_r for the offset at
// most once per minute of record time and process, and child processes inherit the answer. False
// when the year does not fit, like gmtime_r.
bool civilTime(long long seconds, bool utc, std::tm& parts);

}  // namespace vx
