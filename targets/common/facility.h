// The `facility=` parameter of the shipped targets that choose a syslog facility.
#pragma once

#include <string>

// LOG_USER, LOG_DAEMON or LOG_LOCAL0 to LOG_LOCAL7 for "user", "daemon", "local0" to "local7".
// Throws std::invalid_argument with a text that starts with `owner` (such as "syslog target").
int facilityCode(const std::string& name, const std::string& owner);
