// One configuration read of a container without watcher: which file is read, what `component`
// lines and unknown keys do, and what a failed or a target-less read leaves loaded.
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>

#include "CCompiledPaths.h"
#include "CRecorder.h"
#include "CSinkDouble.h"
#include "CSyslogCapture.h"
#include "CTempDir.h"
#include "targets/CLogTargetContainer.h"
#include "testPaths.h"

namespace {

class CLogTargetContainerConfigTest : public ::testing::Test {
protected:
    CLogTargetContainerConfigTest() { CRecorder::instance().clear(); }

    std::string reading(const std::string& file) const
    {
        return "logtarget-container: reading vexlor-config from file \"" + m_dir.file(file) + "\"";
    }

    static bool loaded(const std::string& target)
    {
        const CRecorder& recorder = CRecorder::instance();
        return recorder.calls("created", target).size() > recorder.calls("destroyed", target).size();
    }

    static size_t appnameCalls(const std::string& target)
    {
        return CRecorder::instance().calls("appname", target).size();
    }

    CTempDir m_dir;
    CSyslogCapture m_syslog;
    CSinkDouble m_sink{{"refused"}};
};

TEST_F(CLogTargetContainerConfigTest, ReadsOnlyTheFileInForce)
{
    m_dir.write("vexlor.cfg", "component = net,1\n" + targetLine(testpaths::recorder(), "name=def"));
    m_dir.write("vexlor-player.cfg", "component = ui,11\n" + targetLine(testpaths::recorderTwin(), "name=app"));
    CLogTargetContainer container(m_dir.path(), false, &m_sink);
    EXPECT_EQ(0, m_syslog.countContaining("reading vexlor-config"));

    container.onCfgUpdate();
    EXPECT_EQ(1, m_syslog.count(reading("vexlor.cfg"), LOG_DEBUG));
    EXPECT_TRUE(loaded("def"));

    // A name without a file of its own keeps the default file. This container has no worker to
    // tell about the name.
    container.setAppname("other");
    EXPECT_EQ(2, m_syslog.count(reading("vexlor.cfg"), LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count("logtarget-container: invalid pipe-fd (notify)", LOG_ERR));
    EXPECT_EQ(1, m_syslog.count("logtarget-container: unable to notify thread about a changed appname", LOG_ERR));
    EXPECT_EQ(1u, appnameCalls("def"));

    // The application's own file replaces the default file; it does not add to it.
    container.setAppname("player");
    EXPECT_EQ(1, m_syslog.count(reading("vexlor-player.cfg"), LOG_DEBUG));
    EXPECT_EQ((CSinkDouble::Calls{{"net", "1"}, {"net", "1"}, {"ui", "11"}}), m_sink.calls());
    EXPECT_FALSE(loaded("def"));
    ASSERT_TRUE(loaded("app"));
    EXPECT_EQ("player", CRecorder::instance().calls("created", "app")[0].params.at("application-name"));
    ASSERT_EQ(1u, appnameCalls("app"));
    EXPECT_EQ("player", CRecorder::instance().calls("appname", "app")[0].text);

    // The same name again changes nothing.
    const size_t messages = m_syslog.messages().size();
    container.setAppname("player");
    EXPECT_EQ(messages, m_syslog.messages().size());
    EXPECT_EQ(1u, appnameCalls("app"));
}

TEST_F(CLogTargetContainerConfigTest, AppliesComponentLinesWithTwoElements)
{
    m_dir.write("vexlor.cfg",
                "component = net,000011111\n"
                "component = storage, 1111 1111 1\n"
                "component=ui,11\n"
                "component = a , 0001 1111\n"
                "component = one,\n"
                "component = two\n"
                "component = a,b,c\n"
                "component = ,x,,1,\n"
                "component = y, \n"
                "Component = z,1\n"
                "application-name = w\n"
                "component = refused,101\n");
    CLogTargetContainer container(m_dir.path(), false, &m_sink);
    container.onCfgUpdate();

    EXPECT_EQ((CSinkDouble::Calls{{"net", "000011111"},
                                  {"storage", "111111111"},
                                  {"ui", "11"},
                                  {"a", "00011111"},
                                  {"x", "1"},
                                  {"refused", "101"}}),
              m_sink.calls());
    EXPECT_EQ(1, m_syslog.count("callback \"component\"=\"net,000011111\"", LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count("callback \"component\"=\"y, \"", LOG_DEBUG));
    EXPECT_EQ(12, m_syslog.countContaining("callback \""));
    // Split before trimming: the message shows the elements as they were.
    EXPECT_EQ(1, m_syslog.count("Modifying component \"storage\": new level=\" 1111 1111 1\"", LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count("Modifying component \"a \": new level=\" 0001 1111\"", LOG_DEBUG));
    EXPECT_EQ(6, m_syslog.countContaining("Modifying component"));
    EXPECT_EQ(1, m_syslog.count("ignoring unknown config token \"Component\"", LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count("ignoring unknown config token \"application-name\"", LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.count("Unable to set level \"101\" for component \"refused\"", LOG_DEBUG));
    EXPECT_EQ(1, m_syslog.countContaining("Unable to set level"));
}

TEST_F(CLogTargetContainerConfigTest, FailedReadKeepsWhatWasAppliedAndSuccessfulReadSweeps)
{
    const std::string file =
        m_dir.write("vexlor.cfg", targetLine(testpaths::recorder(), "name=a, syslog=1") +
                                      targetLine(testpaths::recorderTwin(), "name=b"));
    CLogTargetContainer container(m_dir.path(), false, &m_sink);
    container.onCfgUpdate();
    EXPECT_TRUE(container.hasSyslogTarget());

    // Line 2 is too long: line 1 applies, and the targets the file no longer names stay.
    writeFile(file, "component = net,1\ncomponent = " + std::string(300, '1') + "\n");
    container.onCfgUpdate();
    EXPECT_EQ((CSinkDouble::Calls{{"net", "1"}}), m_sink.calls());
    EXPECT_EQ(1, m_syslog.count("cfread: max. value length exceeded in " + file + " at line 2", LOG_ERR));
    EXPECT_EQ(1, m_syslog.count("unable to read vexlor-config \"" + file + "\" - giving up.", LOG_ERR));
    EXPECT_FALSE(container.hasSyslogTarget());
    container.log(1, 0, 0, 0, VX_INFO, "t", "c", "", "kept");
    EXPECT_EQ(std::vector<std::string>{"kept"}, CRecorder::instance().messages("a"));
    EXPECT_EQ(std::vector<std::string>{"kept"}, CRecorder::instance().messages("b"));

    // A missing file is a failed read as well.
    removeTree(file);
    container.onCfgUpdate();
    EXPECT_EQ(1, m_syslog.count("cfread: unable to open " + file, LOG_ERR));
    EXPECT_EQ(2, m_syslog.countContaining("giving up"));
    EXPECT_TRUE(loaded("a") && loaded("b"));
    EXPECT_EQ(0, m_syslog.countContaining("unloading"));

    // A complete file without targets unloads every target.
    writeFile(file, "component = ui,1\n");
    container.onCfgUpdate();
    EXPECT_EQ(1, m_syslog.count("logtarget-container: unloading log-target a (and its library \"" +
                                    testpaths::recorder() + "\")", LOG_INFO));
    EXPECT_EQ(1, m_syslog.count("logtarget-container: unloading log-target b (and its library \"" +
                                    testpaths::recorderTwin() + "\")", LOG_INFO));
    EXPECT_FALSE(loaded("a") || loaded("b"));
    EXPECT_FALSE(container.hasSyslogTarget());
}

}  // namespace
