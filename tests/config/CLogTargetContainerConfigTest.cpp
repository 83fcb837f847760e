// One configuration read of a container without watcher: which file is read, what `component`
// lines and unknown keys do, and what a failed or a target-less read leaves loaded.
#include <syslog.h>

#include "CContainerTest.h"

namespace {

using CLogTargetContainerConfigTest = CContainerTest;

TEST_F(CLogTargetContainerConfigTest, ReadsOnlyTheFileInForce)
{
    m_dir.write("vexlor.cfg", "component = net,1\n" + targetLine(testpaths::recorder(), "name=def"));
    m_dir.write("vexlor-player.cfg", "component = ui,11\n" + targetLine(testpaths::recorderTwin(), "name=app"));
    CLogTargetContainer container(m_dir.path(), false, this);
    EXPECT_EQ(0, m_syslog.countContaining("reading vexlor-config"));

    // A name without a file of its own keeps the default file.
    container.onCfgUpdate();
    container.setAppname("other");
    EXPECT_EQ(2, m_syslog.count(reading("vexlor.cfg"), LOG_DEBUG));
    EXPECT_TRUE(loaded("def"));
    EXPECT_EQ(1u, calls("appname", "def"));

    // The application's own file replaces the default file; it does not add to it.
    container.setAppname("player");
    EXPECT_EQ(1, m_syslog.count(reading("vexlor-player.cfg"), LOG_DEBUG));
    EXPECT_EQ((Levels{{"net", "1"}, {"net", "1"}, {"ui", "11"}}), m_levels);
    EXPECT_FALSE(loaded("def"));
    EXPECT_EQ("player", CRecorder::instance().calls("created", "app").at(0).params.at("application-name"));
    EXPECT_EQ("player", CRecorder::instance().calls("appname", "app").at(0).text);

    // The same name again changes nothing: no read, no message, no notification.
    const size_t messages = m_syslog.messages().size();
    container.setAppname("player");
    EXPECT_EQ(messages, m_syslog.messages().size());
    EXPECT_EQ(1u, calls("appname", "app"));
}

TEST_F(CLogTargetContainerConfigTest, AppliesComponentLinesWithTwoElements)
{
    m_dir.write("vexlor.cfg", "component = net,000011111\ncomponent = storage, 1111 1111 1\ncomponent=ui,11\n"
                              "component = a , 0001 1111\ncomponent = one,\ncomponent = two\ncomponent = a,b,c\n"
                              "component = ,x,,1,\ncomponent = y, \nComponent = z,1\napplication-name = w\n"
                              "component = refused,101\n");
    CLogTargetContainer container(m_dir.path(), false, this);
    container.onCfgUpdate();

    EXPECT_EQ((Levels{{"net", "000011111"}, {"storage", "111111111"}, {"ui", "11"}, {"a", "00011111"},
                      {"x", "1"}, {"refused", "101"}}),
              m_levels);
    // Entries as read; component elements split before trimming.
    for (const char* message : {"callback \"component\"=\"net,000011111\"", "callback \"component\"=\"y, \"",
                                "Modifying component \"storage\": new level=\" 1111 1111 1\"",
                                "Modifying component \"a \": new level=\" 0001 1111\"",
                                "ignoring unknown config token \"Component\"",
                                "ignoring unknown config token \"application-name\"",
                                "Unable to set level \"101\" for component \"refused\""}) {
        EXPECT_EQ(1, m_syslog.count(message, LOG_DEBUG)) << message;
    }
    // One "reading", 12 "callback", 6 "Modifying", 2 "ignoring" and one "Unable" message.
    EXPECT_EQ(22u, m_syslog.messages().size());
}

TEST_F(CLogTargetContainerConfigTest, FailedReadKeepsWhatWasAppliedAndSuccessfulReadSweeps)
{
    const std::string file = m_dir.write("vexlor.cfg", targetLine(testpaths::recorder(), "name=a, syslog=1") +
                                                           targetLine(testpaths::recorderTwin(), "name=b"));
    CLogTargetContainer container(m_dir.path(), false, this);
    container.onCfgUpdate();
    EXPECT_TRUE(container.hasSyslogTarget());

    // Line 2 is too long: line 1 applies, and the targets the file no longer names stay.
    writeFile(file, "component = net,1\ncomponent = " + std::string(300, '1') + "\n");
    container.onCfgUpdate();
    EXPECT_EQ((Levels{{"net", "1"}}), m_levels);
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
    EXPECT_EQ(0, m_syslog.countContaining("unloading"));

    // A complete file without targets unloads every target.
    writeFile(file, "component = ui,1\n");
    container.onCfgUpdate();
    for (const auto& [name, library] : {std::pair{"a", testpaths::recorder()}, {"b", testpaths::recorderTwin()}}) {
        EXPECT_EQ(1, m_syslog.count(std::string("logtarget-container: unloading log-target ") + name +
                                        " (and its library \"" + library + "\")", LOG_INFO));
        EXPECT_FALSE(loaded(name));
    }
    EXPECT_FALSE(container.hasSyslogTarget());
}

}  // namespace
