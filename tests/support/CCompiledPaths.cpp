// Preparation of the compiled-in file locations for tests of the main instance.
#include "CCompiledPaths.h"

#include <filesystem>

#include "CTempDir.h"
#include "testPaths.h"

CCompiledPaths::CCompiledPaths()
{
    removeTree(testpaths::configDir());
    removeTree(testpaths::legacyLevelFile());
    removeTree(testpaths::syslogdPidFile());
    std::filesystem::create_directories(testpaths::configDir());
    std::filesystem::create_directories(std::filesystem::path(testpaths::legacyLevelFile()).parent_path());
}

CCompiledPaths::~CCompiledPaths()
{
    removeTree(testpaths::configDir());
    removeTree(testpaths::legacyLevelFile());
    removeTree(testpaths::syslogdPidFile());
}

std::string CCompiledPaths::defaultConfig() const
{
    return std::string(testpaths::configDir()) + "/vexlor.cfg";
}

std::string CCompiledPaths::appConfig(const std::string& app) const
{
    return std::string(testpaths::configDir()) + "/vexlor-" + app + ".cfg";
}

void CCompiledPaths::writeDefaultConfig(const std::string& content) const
{
    writeFile(defaultConfig(), content);
}

void CCompiledPaths::writeAppConfig(const std::string& app, const std::string& content) const
{
    writeFile(appConfig(app), content);
}

std::string targetLine(const std::string& path, const std::string& parameters)
{
    return "target = " + path + (parameters.empty() ? "" : ", " + parameters) + "\n";
}
