// vexlor-log: logs one message through vexlor from a shell script, under a component and a
// level, to whatever targets the configuration loads. Exit status 0 when the record was
// emitted, 1 when the configuration filters it out, 2 for a usage error.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vexlor/vexlor.h>

namespace {

void usage()
{
    std::fprintf(stderr,
                 "usage: vexlor-log [-a application] [-c component] [-l level] [-t thread] [-s] [-f] message...\n"
                 "  -a  application name (selects vexlor-<application>.cfg when it exists)\n"
                 "  -c  component name (default \"shell\")\n"
                 "  -l  emerg, alert, crit, err, warning, notice, info (default), debug, enterleave, or 0-31\n"
                 "  -t  thread name (default \"main\")\n"
                 "  -s  syslog-style: also write to syslog unless a target does\n"
                 "  -f  log even if the configuration does not enable the level for the component\n");
}

// Null for a name or number that is not a level.
vexlor_level* levelNamed(const char* name)
{
    struct Named {
        const char* name;
        vexlor_level* level;
    };
    const Named levels[] = {{"emerg", VX_EMERG},     {"alert", VX_ALERT},   {"crit", VX_CRIT},
                            {"err", VX_ERR},         {"error", VX_ERROR},   {"warning", VX_WARNING},
                            {"warn", VX_WARN},       {"notice", VX_NOTICE}, {"info", VX_INFO},
                            {"debug", VX_DEBUG},     {"enterleave", VX_ENTERLEAVE}};
    for (const Named& entry : levels) {
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

}  // namespace

int main(int argc, char** argv)
{
    const char* application = nullptr;
    const char* componentName = "shell";
    const char* levelName = "info";
    const char* threadName = "main";
    bool syslogStyle = false;
    bool force = false;
    for (int option; (option = getopt(argc, argv, "a:c:l:t:sfh")) != -1;) {
        switch (option) {
        case 'a': application = optarg; break;
        case 'c': componentName = optarg; break;
        case 'l': levelName = optarg; break;
        case 't': threadName = optarg; break;
        case 's': syslogStyle = true; break;
        case 'f': force = true; break;
        default: usage(); return 2;
        }
    }
    vexlor_level* level = levelNamed(levelName);
    if (level == nullptr || optind >= argc) {
        if (level == nullptr) {
            std::fprintf(stderr, "vexlor-log: unknown level \"%s\"\n", levelName);
        }
        usage();
        return 2;
    }
    std::string message = argv[optind];
    for (int i = optind + 1; i < argc; ++i) {
        message.append(" ").append(argv[i]);
    }

    if (application != nullptr) {
        vexlor_set_applicationname(application);
    }
    vexlor_component* component = vexlor_create_component(componentName, nullptr, "");
    vexlor_init(nullptr, threadName);
    const unsigned int mask = vexlor_get_component_level(componentName);
    if ((mask & vexlor_level_to_mask(level)) == 0) {
        if (!force) {
            std::fprintf(stderr, "vexlor-log: level %s is not enabled for component \"%s\" (mask 0x%x); -f logs anyway\n",
                         levelName, componentName, mask);
            return 1;
        }
        vexlor_set_component_level(componentName, mask | vexlor_level_to_mask(level));
    }
    if (syslogStyle) {
        vexlor_syslog(component, level, "%s", message.c_str());
    } else {
        vexlor(component, level, "%s", message.c_str());
    }
    return 0;
}
