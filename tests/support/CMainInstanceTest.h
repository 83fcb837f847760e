// Fixture for tests of the library's main instance: the compiled-in files with a default
// configuration that loads the recording target "rec", and an empty recorder and syslog capture.
// The first library call of the test builds the instance (each test case runs in its own process).
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "testPaths.h"

class CMainInstanceTest : public ::testing::Test {
protected:
    CMainInstanceTest()
    {
        CRecorder::instance().clear();
        m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec"));
    }

    // What "rec" received.
    static std::vector<CRecordedCall> records() { return CRecorder::instance().calls("log", "rec"); }
    static std::vector<std::string> messages() { return CRecorder::instance().messages("rec"); }

    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};
