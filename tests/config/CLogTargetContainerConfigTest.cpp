// One configuration read of a container without watcher: what `component` lines and unknown keys
// do, and what a read that fails part-way leaves applied.
#include <syslog.h>

#include "CContainerTest.h"

namespace {

using CLogTargetContainerConfigTest = CContainerTest;

// A component line has exactly two elements, each trimmed, with the blanks inside the bits
// dropped; keys are exact. A read that fails part-way keeps what it applied before.
TEST_F(CLogTargetContainerConfigTest, AppliesComponentLinesUntilALineFails)
{
    const std::string file = m_dir.write("vexlor.cfg", "component = net,000011111\ncomponent = storage, 1111 1111 1\n"
                                                       "component = a , 0001\ncomponent = one,\ncomponent = a,b,c\n"
                                                       "Component = z,1\napplication-name = w\ncomponent = refused,101\n"
                                                       "component = " + std::string(300, '1') + "\ncomponent = late,1\n");
    CLogTargetContainer container(m_dir.path(), false, this);
    container.onCfgUpdate();
    EXPECT_EQ((Levels{{"net", "000011111"}, {"storage", "111111111"}, {"a", "0001"}, {"refused", "101"}}), m_levels);
    // Entries as read; component elements as written.
    for (const char* message : {"callback \"component\"=\"net,000011111\"",
                                "Modifying component \"a \": new level=\" 0001\"",
                                "ignoring unknown config token \"Component\"",
                                "Unable to set level \"101\" for component \"refused\""}) {
        EXPECT_EQ(1, m_syslog.count(message, LOG_DEBUG)) << message;
    }
    EXPECT_EQ(1, m_syslog.count("unable to read vexlor-config \"" + file + "\" - giving up.", LOG_ERR));
}

}  // namespace
