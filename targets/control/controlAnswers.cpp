// The requests of controlProtocol.h, answered from the library's component registry through its
// public calls, the process's syslog priority mask, and the shipped targets' counters.
#include "controlAnswers.h"

#include <algorithm>
#include <cerrno>  // program_invocation_short_name
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <syslog.h>
#include <unistd.h>
#include <vexlor/vexlor.h>

#include "configFile.h"
#include "controlProtocol.h"
#include "liveTargets.h"
#include "temporaryRaises.h"

namespace {

using vexlor_control::joinFields;

constexpr long long MAX_RAISE_SECONDS = 7 * 24 * 3600;

std::string hex(unsigned int value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", value);
    return text;
}

std::string describeProcess(const std::vector<std::string>& names)
{
    return joinFields({"pid", std::to_string(getpid())}) + joinFields({"application", vexlor_get_application_name()}) +
        joinFields({"program", program_invocation_short_name}) +
        joinFields({"components", std::to_string(names.size())});
}

std::string show()
{
    std::vector<std::string> names;
    vexlor_get_component_names(names);
    // setlogmask(0) reads the mask without changing it: the legacy level file's, or its default.
    std::string answer = describeProcess(names) + joinFields({"syslogmask", hex(static_cast<unsigned>(setlogmask(0)))});
    for (const std::string& name : names) {
        answer += joinFields({"component", name, hex(vexlor_get_component_level(name))});
        std::vector<std::pair<unsigned int, std::string>> descriptions;
        vexlor_get_level_descriptions(name, descriptions);
        for (const auto& description : descriptions) {
            answer += joinFields({"description", name, std::to_string(description.first), description.second});
        }
    }
    return answer;
}

// "raise <component> <seconds left> <hex mask after>" for each raise in force.
std::string raiseLines()
{
    std::string lines;
    const auto now = temporaryRaises::CClock::now();
    for (const temporaryRaises::CRaise& raise : temporaryRaises::pending()) {
        const auto left = std::chrono::ceil<std::chrono::seconds>(raise.due - now).count();
        lines +=
            joinFields({"raise", raise.component, std::to_string(std::max<long long>(left, 0)), hex(raise.restore)});
    }
    return lines;
}

// "0x" and up to eight hex digits, nothing else.
bool parseMask(const std::string& text, unsigned int& mask)
{
    if (text.size() < 3 || text.size() > 10 || text.compare(0, 2, "0x") != 0 ||
        text.find_first_not_of("0123456789abcdefABCDEF", 2) != std::string::npos) {
        return false;
    }
    mask = static_cast<unsigned int>(std::strtoul(text.c_str() + 2, nullptr, 16));
    return true;
}

// Whole seconds from 1 to a week: digits only.
bool parseSeconds(const std::string& text, long long& seconds)
{
    seconds = text.size() <= 6 && text.find_first_not_of("0123456789") == std::string::npos && !text.empty()
        ? std::stoll(text)
        : 0;
    return seconds >= 1 && seconds <= MAX_RAISE_SECONDS;
}

// A mask for good (`secondsText` null) or for a while.
std::string set(const std::string& name, const std::string& maskText, const std::string* secondsText, uid_t peerUid,
                pid_t peerPid)
{
    unsigned int mask = 0;
    long long seconds = 0;
    if (!parseMask(maskText, mask)) {
        return joinFields({"error", "not a mask: \"" + maskText + "\""});
    }
    if (secondsText != nullptr && !parseSeconds(*secondsText, seconds)) {
        return joinFields(
            {"error",
             "not a duration from 1 to " + std::to_string(MAX_RAISE_SECONDS) + " seconds: \"" + *secondsText + "\""});
    }
    if (vexlor_get_component_by_name(name) == nullptr) {
        return joinFields({"error", "no component \"" + name + "\""});
    }
    const unsigned int old = vexlor_get_component_level(name);
    const unsigned int restore = temporaryRaises::restoreOf(name, old);
    vexlor_set_component_level(name, mask);
    if (seconds == 0) {
        temporaryRaises::cancel(name);
        syslog(LOG_NOTICE, "control target: uid %u (pid %d) set component %s to 0x%x (was 0x%x)",
               static_cast<unsigned>(peerUid), static_cast<int>(peerPid), name.c_str(), mask, old);
        return joinFields({"changed", name, hex(old), hex(vexlor_get_component_level(name))});
    }
    temporaryRaises::add(name, restore, mask, std::chrono::seconds(seconds));
    syslog(LOG_NOTICE, "control target: uid %u (pid %d) set component %s to 0x%x for %lld s, then back to 0x%x",
           static_cast<unsigned>(peerUid), static_cast<int>(peerPid), name.c_str(), mask, seconds, restore);
    return joinFields({"changed", name, hex(old), hex(vexlor_get_component_level(name))}) +
        joinFields({"raise", name, std::to_string(seconds), hex(restore)});
}

}  // namespace

std::string answerRequest(const std::vector<std::string>& request, uid_t peerUid, pid_t peerPid)
{
    // Nothing may escape the control thread; the library's calls throw only when memory runs
    // out or a lock is broken.
    try {
        if (request.size() == 1 && request[0] == "info") {
            std::vector<std::string> names;
            vexlor_get_component_names(names);
            return describeProcess(names) + joinFields({"ok"});
        }
        if (request.size() == 1 && request[0] == "show") {
            return show() + raiseLines() + targetLines() + configLine() + joinFields({"ok"});
        }
        if (request.size() == 1 && request[0] == "stats") {
            std::vector<std::string> names;
            vexlor_get_component_names(names);
            return describeProcess(names) + targetLines() + joinFields({"ok"});
        }
        if ((request.size() == 3 || request.size() == 4) && request[0] == "set") {
            const std::string answer =
                set(request[1], request[2], request.size() == 4 ? &request[3] : nullptr, peerUid, peerPid);
            return answer.compare(0, 5, "error") == 0 ? answer : answer + joinFields({"ok"});
        }
        return joinFields({"error", "unknown request \"" + (request.empty() ? std::string() : request[0]) + "\""});
    } catch (const std::exception& e) {
        return joinFields({"error", std::string("the program could not answer: ") + e.what()});
    }
}
