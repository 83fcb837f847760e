// Where the test build put the test plug-ins, and the file locations compiled into the library
// under test (all inside the build tree).
#pragma once

#include <string>

namespace testpaths {

inline std::string plugin(const std::string& name)
{
    return std::string(VEXLOR_TEST_PLUGIN_DIR) + "/lib" + name + ".so";
}

// The recording target and its variants (see plugins/RecordingTarget.cpp).
inline std::string recorder() { return plugin("recording_target"); }
inline std::string recorderTwin() { return plugin("recording_target_twin"); }
inline std::string hookless() { return plugin("hookless_target"); }
inline std::string noFactory() { return plugin("no_factory_target"); }
inline std::string nullFactory() { return plugin("null_factory_target"); }

inline const char* configDir() { return VEXLOR_TEST_CONFIG_DIR; }
inline const char* legacyLevelFile() { return VEXLOR_TEST_LEGACY_LEVEL_FILE; }
inline const char* syslogdPidFile() { return VEXLOR_TEST_SYSLOGD_PID_FILE; }

}  // namespace testpaths
