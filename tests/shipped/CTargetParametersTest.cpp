// What the shipped targets refuse to be created with: each time one syslog error that names the
// parameter and its value (the wording is the target's), and no target loaded. A FIFO where a
// file belongs is refused at once, never waited on.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <syslog.h>

#include "CTargetFixture.h"

namespace {

using CTargetParametersTest = CTargetFixture;

TEST_F(CTargetParametersTest, RefusesWhatItCannotUseNamingTheParameter)
{
    const std::string file = VEXLOR_TEST_TARGET_FILE ", path=" + m_dir.file("a.log") + ", ";
    const std::string remote = VEXLOR_TEST_TARGET_REMOTE ", host=h, ";
    const std::string fifo = m_dir.file("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);  // the writer's open succeeds then
    const std::string junk = m_dir.write("junk.pem", "not a certificate\n");
    const std::string missing = m_dir.file("missing/a.log");
    // The target line, and the parameter as the refusal must quote it.
    const std::pair<std::string, std::string> cases[] = {
        {VEXLOR_TEST_TARGET_FILE ", path=" + missing, "path=" + missing},
        {VEXLOR_TEST_TARGET_FILE ", path=" + fifo, "path=" + fifo},
        {VEXLOR_TEST_TARGET_FILE ", name=f", "path="},
        {file + "mode=0800", "mode=0800"},
        {file + "max-size=2T", "max-size=2T"},
        {file + "max-files=3", "max-files=3"},
        {file + "buffer=64K, flush-level=loud", "flush-level=loud"},
        {file + "buffer=1K, flush-ms=0", "flush-ms=0"},
        {file + "pattern=%q", "pattern=%q"},
        {file + "pattern=50%", "pattern=50%"},
        {file + "time=gmt", "time=gmt"},
        {VEXLOR_TEST_TARGET_CONSOLE ", stream=stdlog", "stream=stdlog"},
        {VEXLOR_TEST_TARGET_CONSOLE ", levels=warn-", "levels=warn-"},
        {VEXLOR_TEST_TARGET_SYSLOG ", facility=kernel", "facility=kernel"},
        {file + "rate=10/h", "rate=10/h"},
        {VEXLOR_TEST_TARGET_CONSOLE ", rate=0/s", "rate=0/s"},
        {VEXLOR_TEST_TARGET_SYSLOG ", burst=5", "burst=5"},
        {VEXLOR_TEST_TARGET_RECORDER ", rate=5/m, burst=x", "burst=x"},
        {VEXLOR_TEST_TARGET_RECORDER ", size=8K", "size=8K"},
        {VEXLOR_TEST_TARGET_RECORDER ", size=1G", "size=1G"},
        {VEXLOR_TEST_TARGET_RECORDER ", keep=0", "keep=0"},
        {VEXLOR_TEST_TARGET_RECORDER ", remove-on-unload=yes", "remove-on-unload=yes"},
        {VEXLOR_TEST_TARGET_RECORDER ", dir=relative", "dir=relative"},
        {VEXLOR_TEST_TARGET_REMOTE ", port=1", "host="},
        {remote + "transport=sctp", "transport=sctp"},
        {remote + "port=65536", "port=65536"},
        {remote + "framing=crlf", "framing=crlf"},
        {remote + "transport=udp, max-datagram=100", "max-datagram=100"},
        {remote + "sd-id=origin", "sd-id=origin"},
        {remote + "transport=tls, ca=/nonexistent/ca.pem", "ca=/nonexistent/ca.pem"},
        {remote + "transport=tls, ca=" + fifo, "ca=" + fifo},
        {remote + "transport=tls, ca=" + junk, "ca=" + junk},
        {remote + "transport=tls, cert=/c.pem", "cert="},
        {remote + "queue-bytes=65536", "queue-bytes=65536"},
        {remote + "transport=relp, window=0", "window=0"},
        {remote + "sequence=2", "sequence=2"},
    };
    for (const auto& [line, parameter] : cases) {
        m_syslog.clear();
        read("target = " + line + "\n");
        EXPECT_EQ(1, m_syslog.countContaining(parameter, LOG_ERR)) << line;
        EXPECT_EQ(1, m_syslog.countContaining("Unable to create LogTarget")) << line;
    }
    close(reader);
}

}  // namespace
