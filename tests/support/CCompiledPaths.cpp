// Preparation of the compiled-in file locations for tests of the main instance.
#include "CCompiledPaths.h"

#include <filesystem>

CCompiledPaths::CCompiledPaths()
{
    if (std::string(testpaths::configDir()).rfind("/proc/self/cwd/", 0) == 0) {
        m_previousDirectory = std::filesystem::current_path().string();
        m_workingDirectory = std::make_unique<CTempDir>();
        std::filesystem::current_path(m_workingDirectory->path());
    }
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
    if (m_workingDirectory) {
        std::error_code ignored;
        std::filesystem::current_path(m_previousDirectory, ignored);
    }
}

std::string targetLine(const std::string& path, const std::string& parameters)
{
    return "target = " + path + (parameters.empty() ? "" : ", " + parameters) + "\n";
}
