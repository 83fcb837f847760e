// Facility names of the `facility=` parameter.
#include "facility.h"

#include <stdexcept>
#include <syslog.h>

int facilityCode(const std::string& name, const std::string& owner)
{
    if (name == "user") {
        return LOG_USER;
    }
    if (name == "daemon") {
        return LOG_DAEMON;
    }
    if (name.size() == 6 && name.compare(0, 5, "local") == 0 && name[5] >= '0' && name[5] <= '7') {
        return LOG_LOCAL0 + (name[5] - '0') * (LOG_LOCAL1 - LOG_LOCAL0);
    }
    throw std::invalid_argument(owner + ": unknown facility \"" + name + "\" (user, daemon, local0 to local7)");
}
