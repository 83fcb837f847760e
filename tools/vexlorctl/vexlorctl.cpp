// vexlorctl: lists the running programs whose configuration loads the control target, shows
// their components with masks and level descriptions and their targets' counters, and sets a
// component's mask; lists and prints the recorder target's rings (ringDump.cpp).
// Exit status 0 on success, 1 when a process is gone, not controllable or refuses, 2 for a
// usage error.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "CControlClient.h"
#include "levelText.h"
#include "processList.h"
#include "programView.h"
#include "ringDump.h"
#include "terminalText.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

const char* const USAGE =
    "usage: vexlorctl list\n"
    "       vexlorctl show <pid|application>\n"
    "       vexlorctl stats <pid|application> [--json]\n"
    "       vexlorctl set <pid|application> <component> <levels> [--for <duration>]\n"
    "       vexlorctl rings [--dir=DIR]\n"
    "       vexlorctl dump <pid|application|file> [--last N] [--pattern=PATTERN] [--utc] [--dir=DIR]\n"
    "  levels: a hex mask (0x1f), a bit string as in vexlor.cfg (000011111), or level names and\n"
    "          numbers (warn,debug,8; emerg-warn; all)\n"
    "  duration: 30s, 10m, 1h (up to 168h); the program restores the mask when it is over\n"
    "A mask set here lasts until the program next reads a configuration file that names the component.\n";

constexpr long long MAX_RAISE_SECONDS = 7 * 24 * 3600;

// The first line whose first field is `key`: its second field as the program sent it.
std::string rawField(const CLines& lines, const std::string& key)
{
    for (const auto& line : lines) {
        if (line.size() > 1 && line[0] == key) {
            return line[1];
        }
    }
    return std::string();
}

// The same, ready to print (see printable).
std::string field(const CLines& lines, const std::string& key) { return printable(rawField(lines, key)); }

// A mask as a program sends it; anything else reads as 0.
unsigned int hexField(const std::string& text)
{
    return static_cast<unsigned int>(std::strtoul(text.c_str(), nullptr, 16));
}

// `text` may carry a program's own words.
int fail(const std::string& text)
{
    std::fprintf(stderr, "vexlorctl: %s\n", printable(text).c_str());
    return EXIT_FAILED;
}

bool isPid(const std::string& text)
{
    return !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == std::string::npos;
}

// The processes with a control name that this user may ask (root: all), and the names.
std::vector<int> askablePids(CControlNames& names, std::vector<int>* others = nullptr)
{
    names = controlNames();
    std::vector<int> pids;
    for (const auto& entry : names) {
        (mayAsk(entry.first) ? pids : others != nullptr ? *others : pids).push_back(entry.first);
    }
    return pids;
}

std::string row(const std::string& application, const std::string& program, const std::string& rest)
{
    char text[128];
    std::snprintf(text, sizeof text, "%-24s %-16s ", application.c_str(), program.c_str());
    return text + rest;
}

int list()
{
    std::printf("%-8s %-24s %-16s %s\n", "PID", "APPLICATION", "PROGRAM", "COMPONENTS");
    CControlNames names;
    std::vector<int> others;
    const std::vector<int> pids = askablePids(names, &others);
    const std::vector<CControlReply> replies = askEach(pids, names, {"info"});
    std::map<int, std::string> rows;  // printed in pid order
    for (const int pid : others) {
        rows[pid] = row("-", printable(programName(pid)), "(another user's)");
    }
    for (std::size_t i = 0; i < pids.size(); ++i) {
        const CControlReply& reply = replies[i];
        if (reply.status == CControlReply::ok) {
            rows[pids[i]] =
                row(field(reply.lines, "application"), field(reply.lines, "program"), field(reply.lines, "components"));
        } else if (reply.status != CControlReply::gone) {  // gone: ended since the kernel listed it
            rows[pids[i]] = row("-", printable(programName(pids[i])), printable(reply.text));
        }
    }
    for (const auto& [pid, text] : rows) {
        std::printf("%-8d %s\n", pid, text.c_str());
    }
    return 0;
}

// The processes that `target` names: a pid, or every process this user may ask with that
// application name.
bool resolve(const std::string& target, std::vector<int>& pids)
{
    if (isPid(target)) {
        pids.push_back(std::atoi(target.c_str()));
        return true;
    }
    CControlNames names;
    const std::vector<int> candidates = askablePids(names);
    const std::vector<CControlReply> replies = askEach(candidates, names, {"info"});
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        const auto& lines = replies[i].lines;
        if (replies[i].status == CControlReply::ok &&
            std::any_of(lines.begin(), lines.end(), [&](const std::vector<std::string>& line) {
                return line.size() > 1 && line[0] == "application" && line[1] == target;
            })) {
            pids.push_back(candidates[i]);
        }
    }
    if (pids.empty()) {
        fail("no controllable process of yours has the application name \"" + target + "\" (see vexlorctl list)");
    }
    return !pids.empty();
}

// "30s", "10m", "1h" or plain seconds, from 1 s to a week; 0 when it is none of them.
long long parseDuration(const std::string& text)
{
    const std::size_t digits = text.find_first_not_of("0123456789");
    const std::string unit = digits == std::string::npos ? "s" : text.substr(digits);
    if (digits == 0 || text.size() > 8 || (unit != "s" && unit != "m" && unit != "h")) {
        return 0;
    }
    const long long seconds = std::stoll(text.substr(0, digits)) * (unit == "h" ? 3600 : unit == "m" ? 60 : 1);
    return seconds <= MAX_RAISE_SECONDS ? seconds : 0;
}

// 1h 2m 5s, 10m, 30s.
std::string durationText(long long seconds)
{
    std::string text;
    for (const auto& [size, unit] : {std::pair<long long, const char*>{3600, "h"}, {60, "m"}, {1, "s"}}) {
        if (seconds >= size || (size == 1 && text.empty())) {
            text += (text.empty() ? "" : " ") + std::to_string(seconds / size) + unit;
            seconds %= size;
        }
    }
    return text;
}

// "for 9m 58s more, then back to 0x00000010  WARN".
std::string raiseText(const std::vector<std::string>& line)
{
    const unsigned int after = hexField(line[3]);
    char mask[16];
    std::snprintf(mask, sizeof mask, "0x%08x", after);
    return "for " + durationText(std::atoll(line[2].substr(0, 7).c_str())) + " more, then back to " + mask + "  " +
        levelNames(after);
}

void printComponents(const CLines& lines)
{
    std::map<std::string, std::vector<std::string>> descriptions;
    std::map<std::string, std::string> raises;
    for (const auto& line : lines) {
        if (line.size() == 4 && line[0] == "description") {
            descriptions[line[1]].push_back(printable(line[2] + " = " + line[3]));
        }
        if (line.size() == 4 && line[0] == "raise") {
            raises[line[1]] = raiseText(line);
        }
    }
    for (const auto& line : lines) {
        if (line.size() == 3 && line[0] == "component") {
            const unsigned int mask = hexField(line[2]);
            std::printf("  %-20s 0x%08x  %s\n", printable(line[1]).c_str(), mask, levelNames(mask).c_str());
            if (raises.count(line[1]) != 0) {
                std::printf("  %-20s   %s\n", "", raises[line[1]].c_str());
            }
            for (const std::string& description : descriptions[line[1]]) {
                std::printf("  %-20s   level %s\n", "", description.c_str());
            }
        }
    }
}

// Asks every process that `target` names and hands each answer to `print`; says why a process
// could not answer. EXIT_FAILED when `target` names none, else 0 or the last failure's status.
template <typename Print>
int forEachAnswer(const std::string& target, const std::vector<std::string>& request, Print print)
{
    std::vector<int> pids;
    if (!resolve(target, pids)) {
        return EXIT_FAILED;
    }
    int status = 0;
    for (const int pid : pids) {
        const CControlReply reply = askProcess(pid, request);
        if (reply.status != CControlReply::ok) {
            status = fail(reply.text);
        } else {
            print(pid, reply);
        }
    }
    return status;
}

int show(const std::string& target)
{
    return forEachAnswer(target, {"show"}, [](int pid, const CControlReply& reply) {
        const unsigned int syslogMask = hexField(field(reply.lines, "syslogmask"));
        std::printf("process %d: application \"%s\", program \"%s\", %s components\n", pid,
                    field(reply.lines, "application").c_str(), field(reply.lines, "program").c_str(),
                    field(reply.lines, "components").c_str());
        std::printf("  syslog priority mask 0x%02x: %s\n", syslogMask, levelNames(syslogMask).c_str());
        printComponents(reply.lines);
        for (const CTargetRow& row : targetRows(reply.lines)) {
            std::printf("  target %s\n", targetText(row).c_str());
        }
        std::fputs(configText(reply.lines).c_str(), stdout);
    });
}

int stats(const std::string& target, bool json)
{
    return forEachAnswer(target, {"stats"}, [json](int pid, const CControlReply& reply) {
        const std::vector<CTargetRow> rows = targetRows(reply.lines);
        if (json) {
            std::printf(
                "%s\n",
                statsJson(pid, rawField(reply.lines, "application"), rawField(reply.lines, "program"), rows).c_str());
            return;
        }
        std::printf("process %d: application \"%s\", program \"%s\"\n", pid, field(reply.lines, "application").c_str(),
                    field(reply.lines, "program").c_str());
        for (const CTargetRow& row : rows) {
            std::printf("  %s\n", targetText(row).c_str());
        }
    });
}

// `duration` empty: for good.
int set(const std::string& target, const std::string& component, const std::string& levels, const std::string& duration)
{
    unsigned int mask = 0;
    std::string error;
    if (!parseLevels(levels, mask, error)) {
        std::fprintf(stderr, "vexlorctl: %s\n", error.c_str());
        return EXIT_USAGE;
    }
    const long long seconds = duration.empty() ? 0 : parseDuration(duration);
    if (!duration.empty() && seconds == 0) {
        std::fprintf(stderr, "vexlorctl: --for %s: not a duration from 1s to 168h (30s, 10m, 1h)\n",
                     printable(duration).c_str());
        return EXIT_USAGE;
    }
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%x", mask);
    std::vector<std::string> request = {"set", component, hex};
    if (seconds != 0) {
        request.push_back(std::to_string(seconds));
    }
    const int status = forEachAnswer(target, request, [](int pid, const CControlReply& reply) {
        for (const auto& line : reply.lines) {
            if (line.size() == 4 && line[0] == "changed") {
                const unsigned int now = hexField(line[3]);
                std::printf("process %d: %s 0x%08x -> 0x%08x  %s\n", pid, printable(line[1]).c_str(), hexField(line[2]),
                            now, levelNames(now).c_str());
            }
            if (line.size() == 4 && line[0] == "raise") {
                std::printf("  %s\n", raiseText(line).c_str());
            }
        }
    });
    if (status == 0 && seconds != 0) {
        std::printf("The program itself restores the mask when the time is over; a configuration file it reads "
                    "before then with a line for \"%s\" wins.\n",
                    component.c_str());
    } else if (status == 0) {
        std::printf("This lasts until the program next reads a configuration file with a line for \"%s\".\n",
                    component.c_str());
    }
    return status;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 1 && (args[0] == "-h" || args[0] == "--help")) {
        std::fputs(USAGE, stdout);
        return 0;
    }
    if (args.size() == 1 && args[0] == "list") {
        return list();
    }
    if (args.size() == 2 && args[0] == "show") {
        return show(args[1]);
    }
    if ((args.size() == 2 || (args.size() == 3 && args[2] == "--json")) && args[0] == "stats") {
        return stats(args[1], args.size() == 3);
    }
    if ((args.size() == 4 || (args.size() == 6 && args[4] == "--for")) && args[0] == "set") {
        return set(args[1], args[2], args[3], args.size() == 6 ? args[5] : std::string());
    }
    if (!args.empty() && (args[0] == "rings" || args[0] == "dump")) {
        const std::vector<std::string> rest(args.begin() + 1, args.end());
        try {
            return args[0] == "rings" ? ringsCommand(rest) : dumpCommand(rest);
        } catch (const std::bad_alloc&) {  // a ring of the largest size, on a small machine
            return fail("not enough memory to read the ring");
        }
    }
    std::fputs(USAGE, stderr);
    return EXIT_USAGE;
}
