// The messages every benchmark logs, so that each library and formatter gets the same work.
#pragma once

namespace bench {

constexpr const char* VALUE_FORMAT = "value %d";
constexpr int VALUE = 42;

// "replica: connection 1742 to 10.20.30.40:5432 established in 38 ms": 65 characters.
constexpr const char* CONNECTION_FORMAT = "%s: connection %d to %s established in %u ms";
constexpr const char* CONNECTION_NAME = "replica";
constexpr int CONNECTION_ID = 1742;
constexpr const char* CONNECTION_PEER = "10.20.30.40:5432";
constexpr unsigned int CONNECTION_MILLISECONDS = 38;

}  // namespace bench
