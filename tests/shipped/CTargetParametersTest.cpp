// What the shipped targets refuse to be created with: each time one syslog error naming the
// target, the parameter and the value, and no target loaded. A FIFO where a file belongs is
// refused at once, never waited on.
#include <sys/stat.h>

#include "CTargetFixture.h"

namespace {

using CTargetParametersTest = CTargetFixture;

TEST_F(CTargetParametersTest, RefusesWhatItCannotUseNamingTheParameter)
{
    const std::string missing = m_dir.file("missing/a.log");
    const std::string file = VEXLOR_TEST_TARGET_FILE ", path=" + m_dir.file("a.log") + ", ";
    const std::string remote = VEXLOR_TEST_TARGET_REMOTE ", host=h, ";
    const std::string size = ": not a size from 1 to 1125899906842624 bytes (suffixes K, M, G)";
    const std::string fifo = m_dir.file("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const std::string junk = m_dir.write("junk.pem", "not a certificate\n");
    const std::pair<std::string, std::string> cases[] = {
        {VEXLOR_TEST_TARGET_FILE ", path=" + missing,
         "file target \"file\": path=" + missing + ": cannot open: its directory " + m_dir.file("missing") +
             ": No such file or directory"},
        {VEXLOR_TEST_TARGET_FILE ", path=" + fifo, "path=" + fifo + ": cannot open: is a FIFO, not a regular file"},
        {VEXLOR_TEST_TARGET_FILE ", name=f", "file target \"f\": path=: missing (the file to write)"},
        {file + "mode=0800", "mode=0800: not an octal mode from 0 to 0777"},
        {file + "max-size=2T", "max-size=2T" + size},
        {file + "max-files=3", "max-files=3: needs max-size="},
        {file + "buffer=64K, flush-level=loud", "flush-level=loud: not a level (emerg ... debug, trace, 0-32)"},
        {file + "buffer=1K, flush-ms=0", "flush-ms=0: not a number from 1 to 3600000"},
        {file + "pattern=%q", "pattern=%q: unknown token %q"},
        {file + "pattern=50%", "pattern=50%: a lone % at the end"},
        {file + "time=gmt", "time=gmt: not local or utc"},
        {VEXLOR_TEST_TARGET_CONSOLE ", stream=stdlog",
         "console target \"console\": stream=stdlog: not stderr or stdout"},
        {VEXLOR_TEST_TARGET_CONSOLE ", levels=warn-", "levels=warn-: \"warn-\" is not a level"},
        {VEXLOR_TEST_TARGET_SYSLOG ", facility=kernel",
         "syslog target \"syslog\": facility=kernel: unknown facility "
         "\"kernel\" (user, daemon, local0 to local7)"},
        {VEXLOR_TEST_TARGET_REMOTE ", port=1", "remote target: host= is required (the receiver's name or address)"},
        {remote + "transport=sctp", "transport=sctp: not one of tcp|udp|tls"},
        {remote + "port=65536", "port=65536: not a whole number from 1 to 65535"},
        {remote + "framing=crlf", "framing=crlf: not one of octet-counting|lf"},
        {remote + "transport=udp, max-datagram=100", "max-datagram=100: not a whole number from 480 to 65507"},
        {remote + "sd-id=origin", "sd-id=origin: not an SD-ID of the form name@number"},
        {remote + "transport=tls, ca=/nonexistent/ca.pem", "ca=/nonexistent/ca.pem: No such file or directory"},
        {remote + "transport=tls, ca=" + fifo, "ca=" + fifo + ": is a FIFO, not a regular file"},
        {remote + "transport=tls, ca=/dev/null", "ca=/dev/null: is a character device, not a regular file"},
        {remote + "transport=tls, ca=" + junk, "ca=" + junk + ": cannot load the authorities - "},
        {remote + "transport=tls, cert=/c.pem", "cert= and key= go together"},
    };
    for (const auto& [line, why] : cases) {
        m_syslog.clear();
        read("target = " + line + "\n");
        EXPECT_EQ(1, m_syslog.countContaining(why)) << line;
        EXPECT_EQ(1, m_syslog.countContaining("Unable to create LogTarget")) << line;
    }
}

}  // namespace
