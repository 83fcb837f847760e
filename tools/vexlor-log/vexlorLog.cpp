// vexlor-log: logs from shell scripts through vexlor, under a component and a level, to whatever
// targets the configuration loads: the message given as arguments, or else one record per line
// of standard input, as logger(1) does. A message that reaches no target says so on stderr, and
// so, once each, does a message cut at a NUL byte or at the library's 2047 bytes.
// Exit status: 0 logged, 1 the configuration does not enable the level for the component,
// 2 usage error, 3 no target is loaded (nothing was written anywhere).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <string>
#include <vexlor/vexlor.h>

#include "delivery.h"

namespace {

constexpr int EXIT_FILTERED = 1;
constexpr int EXIT_USAGE = 2;
constexpr int EXIT_NO_TARGET = 3;
// The longest message the library logs; the rest of a longer one is cut.
constexpr std::size_t MESSAGE_LIMIT = 2047;

const char* const USAGE =
    "usage: vexlor-log [options] [message...]\n"
    "Logs the message, or else each line of standard input, through the configured targets.\n"
    "  -a, --application NAME  application name (selects vexlor-NAME.cfg when it exists)\n"
    "  -c, --component NAME    component (default \"shell\")\n"
    "  -l, --level LEVEL       emerg, alert, crit, err, warning, notice, info (default), debug,\n"
    "                          enterleave, or 0-31\n"
    "  -t, --thread NAME       thread name (default \"main\")\n"
    "  -s, --syslog            also write to syslog unless a target does\n"
    "  -f, --force             log even if the configuration does not enable the level\n"
    "  -h, --help              this text\n"
    "Exit status: 0 logged, 1 level not enabled for the component, 2 usage error, 3 no target loaded.\n";

struct COptions {
    std::string application;
    std::string component = "shell";
    std::string levelName = "info";
    vexlor_level* level = nullptr;
    const char* thread = "main";
    bool syslogStyle = false;
    bool force = false;
};

// Null for a name or number that is not a level.
vexlor_level* levelNamed(const char* name)
{
    struct CNamed {
        const char* name;
        vexlor_level* level;
    };
    const CNamed levels[] = {{"emerg", VX_EMERG}, {"alert", VX_ALERT},          {"crit", VX_CRIT},
                             {"err", VX_ERR},     {"error", VX_ERROR},          {"warning", VX_WARNING},
                             {"warn", VX_WARN},   {"notice", VX_NOTICE},        {"info", VX_INFO},
                             {"debug", VX_DEBUG}, {"enterleave", VX_ENTERLEAVE}};
    for (const CNamed& entry : levels) {
        if (std::strcmp(entry.name, name) == 0) {
            return entry.level;
        }
    }
    char* end = nullptr;
    const long number = std::strtol(name, &end, 10);
    if (*name != '\0' && *end == '\0' && number >= 0 && number < 32) {
        return vexlor_level_create(static_cast<unsigned int>(number));
    }
    return nullptr;
}

// -1 when the options are fine and logging goes on, else the exit status.
int parseOptions(int argc, char** argv, COptions& options)
{
    const option longOptions[] = {{"application", required_argument, nullptr, 'a'},
                                  {"component", required_argument, nullptr, 'c'},
                                  {"level", required_argument, nullptr, 'l'},
                                  {"thread", required_argument, nullptr, 't'},
                                  {"syslog", no_argument, nullptr, 's'},
                                  {"force", no_argument, nullptr, 'f'},
                                  {"help", no_argument, nullptr, 'h'},
                                  {nullptr, 0, nullptr, 0}};
    for (int option; (option = getopt_long(argc, argv, "a:c:l:t:sfh", longOptions, nullptr)) != -1;) {
        switch (option) {
        case 'a': options.application = optarg; break;
        case 'c': options.component = optarg; break;
        case 'l': options.levelName = optarg; break;
        case 't': options.thread = optarg; break;
        case 's': options.syslogStyle = true; break;
        case 'f': options.force = true; break;
        case 'h': std::fputs(USAGE, stdout); return 0;
        default: std::fputs(USAGE, stderr); return EXIT_USAGE;
        }
    }
    options.level = levelNamed(options.levelName.c_str());
    if (options.level == nullptr) {
        std::fprintf(stderr, "vexlor-log: unknown level \"%s\" (see vexlor-log --help)\n", options.levelName.c_str());
        return EXIT_USAGE;
    }
    return -1;
}

// One line of standard input as far as it can be logged: up to its first NUL byte (which ends the
// message in the library) and at most MESSAGE_LIMIT bytes.
struct CInputLine {
    std::string text;
    std::size_t length = 0;  // the whole line's, without the line feed
    bool hasNul = false;
};

// Reads the next line a byte at a time into a bounded buffer: the rest of a long line is read
// and dropped, so memory does not grow with the line. False at the end of the input.
bool readLine(std::FILE* in, CInputLine& line)
{
    line.text.clear();
    line.length = 0;
    line.hasNul = false;
    int c = EOF;
    while ((c = getc_unlocked(in)) != EOF && c != '\n') {
        line.hasNul = line.hasNul || c == '\0';
        if (!line.hasNul && line.text.size() < MESSAGE_LIMIT) {
            line.text += static_cast<char>(c);
        }
        ++line.length;
    }
    return c != EOF || line.length > 0;
}

// Logs one message; says on stderr, once per kind, why a message reached no target.
class CShellLogger {
public:
    explicit CShellLogger(const COptions& options)
        : m_options(options)
        , m_component(vexlor_create_component(options.component.c_str(), nullptr, ""))
    {
        vexlor_init(nullptr, options.thread);
    }

    // Says what of a logged message was cut, once per kind: `where` names it ("line 3", "the message").
    void sayCut(const std::string& where, std::size_t length, bool hasNul)
    {
        if (hasNul && !m_toldNul) {
            m_toldNul = true;
            std::fprintf(stderr,
                         "vexlor-log: %s holds a NUL byte: its record ends there (later lines are cut the same way "
                         "without another word)\n",
                         where.c_str());
        } else if (!hasNul && length > MESSAGE_LIMIT && !m_toldLong) {
            m_toldLong = true;
            std::fprintf(stderr,
                         "vexlor-log: %s is %zu bytes long: only its first %zu are logged (a record holds no more; "
                         "later lines are cut the same way without another word)\n",
                         where.c_str(), length, MESSAGE_LIMIT);
        }
    }

    int log(const std::string& message)
    {
        const unsigned int levelMask = vexlor_level_to_mask(m_options.level);
        const unsigned int mask = vexlor_get_component_level(m_options.component);
        if ((mask & levelMask) == 0) {
            if (!m_options.force) {
                return filtered(mask);
            }
            vexlor_set_component_level(m_options.component, mask | levelMask);
        }
        // Syslog-style records reach syslog even without a target.
        if (m_options.syslogStyle) {
            vexlor_syslog(m_component, m_options.level, "%s", message.c_str());
            return 0;
        }
        if (loadedTargets() == 0) {
            return noTarget();
        }
        vexlor(m_component, m_options.level, "%s", message.c_str());
        return 0;
    }

private:
    int filtered(unsigned int mask)
    {
        if (!m_toldFiltered) {
            m_toldFiltered = true;
            const unsigned int number = vexlor_level_to_numeric(m_options.level);
            std::fprintf(stderr,
                         "vexlor-log: level %s is not enabled for component \"%s\" (mask 0x%x), nothing logged.\n"
                         "  Enable it with a line \"component = %s, %s\" in %s, or log anyway with -f.\n",
                         m_options.levelName.c_str(), m_options.component.c_str(), mask, m_options.component.c_str(),
                         std::string(number + 1, '1').c_str(), configFileInForce(m_options.application).c_str());
        }
        return EXIT_FILTERED;
    }

    int noTarget()
    {
        if (!m_toldNoTarget) {
            m_toldNoTarget = true;
            std::fprintf(stderr,
                         "vexlor-log: no log target is loaded, nothing was written.\n"
                         "  %s names none, or they failed to load (see syslog; vexlor-check %s tells why).\n",
                         configFileInForce(m_options.application).c_str(),
                         configFileInForce(m_options.application).c_str());
        }
        return EXIT_NO_TARGET;
    }

    const COptions& m_options;
    vexlor_component* const m_component;
    bool m_toldFiltered = false;
    bool m_toldNoTarget = false;
    bool m_toldNul = false;
    bool m_toldLong = false;
};

}  // namespace

int main(int argc, char** argv)
{
    COptions options;
    const int status = parseOptions(argc, argv, options);
    if (status >= 0) {
        return status;
    }
    if (!options.application.empty()) {
        vexlor_set_applicationname(options.application.c_str());
    }
    CShellLogger logger(options);
    if (optind < argc) {
        std::string message = argv[optind];
        for (int i = optind + 1; i < argc; ++i) {
            message.append(" ").append(argv[i]);
        }
        const int logged = logger.log(message);
        if (logged == 0) {
            logger.sayCut("the message", message.size(), false);
        }
        return logged;
    }
    // Every line is logged (and read, so that a pipe's writer never blocks); the status is that of
    // the first line that reached no target.
    int result = 0;
    CInputLine line;
    line.text.reserve(MESSAGE_LIMIT);
    for (unsigned long number = 1; readLine(stdin, line); ++number) {
        const int lineStatus = logger.log(line.text);
        if (lineStatus == 0) {
            logger.sayCut("line " + std::to_string(number), line.length, line.hasNul);
        }
        result = result != 0 ? result : lineStatus;
    }
    return result;
}
