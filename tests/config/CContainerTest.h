// Set-up shared by the tests of a container on a temporary configuration directory. The fixture
// is the container's component sink: it records every level set and refuses the name "refused".
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "levels/IComponentCfgUpdateSink.h"
#include "targets/CLogTargetContainer.h"
#include "testPaths.h"

class CContainerTest : public ::testing::Test, public IComponentCfgUpdateSink {
protected:
    using Levels = std::vector<std::pair<std::string, std::string>>;

    CContainerTest() { CRecorder::instance().clear(); }

    // Called under the container's lock, on whichever thread reads the configuration.
    int updateComponentLevel(const std::string& name, const std::string& bits) override
    {
        m_levels.emplace_back(name, bits);
        return name == "refused" ? -1 : 0;
    }

    static bool loaded(const std::string& target)
    {
        return CRecorder::instance().calls("created", target).size() > CRecorder::instance().calls("destroyed", target).size();
    }

    std::string reading(const std::string& file) const
    {
        return "logtarget-container: reading vexlor-config from file \"" + m_dir.file(file) + "\"";
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    Levels m_levels;
};
