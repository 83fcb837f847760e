// For tests of the library's main instance: prepares the configuration directory, the legacy
// level file and the syslogd pid file compiled into the library under test. Every test case runs
// in a process of its own, so the main instance is constructed by the first library call of the
// case, after the files are in place. Where the locations lie below /proc/self/cwd (the test
// presets), the test moves into a fresh directory of its own first.
#pragma once

#include <memory>
#include <string>

#include "CTempDir.h"
#include "testPaths.h"

class CCompiledPaths {
public:
    CCompiledPaths();  // an empty configuration directory, no legacy file, no pid file
    ~CCompiledPaths();  // removes them again
    CCompiledPaths(const CCompiledPaths&) = delete;
    CCompiledPaths& operator=(const CCompiledPaths&) = delete;

    std::string defaultConfig() const { return std::string(testpaths::configDir()) + "/vexlor.cfg"; }
    std::string appConfig(const std::string& app) const
    {
        return std::string(testpaths::configDir()) + "/vexlor-" + app + ".cfg";
    }
    void writeDefaultConfig(const std::string& content) const { writeFile(defaultConfig(), content); }
    void writeAppConfig(const std::string& app, const std::string& content) const
    {
        writeFile(appConfig(app), content);
    }

private:
    std::unique_ptr<CTempDir> m_workingDirectory;  // null where the locations are shared
    std::string m_previousDirectory;
};

// "target = <path>[, key=value]..." with a line feed.
std::string targetLine(const std::string& path, const std::string& parameters = std::string());
