// Hex dumps: the exact line layout, line splitting, the character column, and the filter that
// also covers null data.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSyslogCapture.h"
#include "core/CVexlor.h"
#include "testPaths.h"

namespace {

class CVexlorDumpTest : public ::testing::Test {
protected:
    void SetUp() override { m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=rec")); }

    // The lines of one dump, then forgotten.
    static std::vector<std::string> dumped(vexlor_component* component, vexlor_level* level, const void* data,
                                           unsigned int length)
    {
        CRecorder::instance().clear();
        vexlor_dump(component, level, data, length);
        return CRecorder::instance().messages("rec");
    }

    CCompiledPaths m_paths;
    CSyslogCapture m_syslog;
};

TEST_F(CVexlorDumpTest, FormatsLinesByteExact)
{
    vexlor_component* app = vexlor_create_component("app", VX_DEBUG, "");
    const unsigned char hello[] = {0x48, 0x65, 0x6c, 0x6c, 0x6f, 0x2c, 0x20, 0x77, 0x6f, 0x72,
                                   0x6c, 0x64, 0x21, 0x0a, 0x00, 0x01, 0x7e, 0x80, 0xff, 0x41};
    const std::vector<std::string> expected{
        "0x00000000 - 48 65 6c 6c 6f 2c 20 77 6f 72 6c 64 21 0a 00 01 | Hello, world!...",
        "0x00000010 - 7e 80 ff 41 " + std::string(36, ' ') + "| ~..A",
    };
    const auto lines = dumped(app, VX_DEBUG, hello, sizeof hello);
    EXPECT_EQ(expected, lines);
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(79u, lines[0].size());
    EXPECT_EQ(67u, lines[1].size());
    for (const CRecordedCall& record : CRecorder::instance().calls("log", "rec")) {
        EXPECT_EQ(VX_DEBUG, record.level);
    }

    unsigned char block[32];
    for (unsigned int i = 0; i < sizeof block; ++i) {
        block[i] = static_cast<unsigned char>(0x70 + i);
    }
    block[0] = 0x1f;
    block[1] = 0x80;
    const std::string firstLine = "0x00000000 - 1f 80 72 73 74 75 76 77 78 79 7a 7b 7c 7d 7e 7f | ..rstuvwxyz{|}~\x7f";
    EXPECT_EQ(std::vector<std::string>{firstLine}, dumped(app, VX_DEBUG, block, 16));
    const auto two = dumped(app, VX_DEBUG, block, 32);
    ASSERT_EQ(2u, two.size());
    EXPECT_EQ(firstLine, two[0]);
    EXPECT_EQ("0x00000010 - 80 81 82 83 84 85 86 87 88 89 8a 8b 8c 8d 8e 8f | ................", two[1]);

    // The line is replaced, not appended to; more than 16 bytes show only the first 16.
    std::string line = "old content";
    CVexlor::formatDumpLine(line, 16, block, 5);
    EXPECT_EQ("0x00000010 - 80 81 82 83 84 " + std::string(33, ' ') + "| .....", line);
    CVexlor::formatDumpLine(line, 0, block, 20);
    EXPECT_EQ(firstLine, line);
}

TEST_F(CVexlorDumpTest, FiltersBeforeHandlingNullData)
{
    vexlor_component* app = vexlor_create_component("app", VX_DEBUG, "");
    const char data[] = "abc";
    EXPECT_TRUE(dumped(app, VX_DEBUG, data, 0).empty());
    EXPECT_EQ(std::vector<std::string>{"<NULL>"}, dumped(app, VX_DEBUG, nullptr, 0));
    EXPECT_EQ(std::vector<std::string>{"<NULL>"}, dumped(app, VX_DEBUG, nullptr, 100));
    EXPECT_TRUE(dumped(app, VX_INFO, data, 3).empty());
    EXPECT_TRUE(dumped(app, VX_INFO, nullptr, 3).empty());
    EXPECT_TRUE(dumped(nullptr, VX_DEBUG, nullptr, 3).empty());
    EXPECT_TRUE(dumped(app, nullptr, nullptr, 3).empty());
    EXPECT_EQ(std::vector<std::string>{"0x00000000 - 61 62 63 " + std::string(39, ' ') + "| abc"},
              dumped(app, VX_DEBUG, data, 3));
}

}  // namespace
