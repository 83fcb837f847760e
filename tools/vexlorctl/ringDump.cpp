// vexlorctl rings and vexlorctl dump: the recorder target's rings, listed and printed in the file
// target's line layout. They read the files only: a live process is never stopped or asked.
#include "ringDump.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

#include "CLineLayout.h"
#include "ringReader.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

struct COptions {
    std::string dir = defaultRingDirectory();
    std::string pattern = CLineLayout::DEFAULT_PATTERN;
    bool utc = false;
    long long last = -1;  // every record
    std::vector<std::string> operands;
};

struct CFoundRing {
    std::string path;
    CRing ring;
    bool alive = false;
};

int usage(const std::string& text)
{
    std::fprintf(stderr, "vexlorctl: %s\n", text.c_str());
    return EXIT_USAGE;
}

bool parseOptions(const std::vector<std::string>& args, COptions& options, std::string& error)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        std::string value = arg.substr(std::min(arg.find('=') + 1, arg.size()));
        if (arg.compare(0, 6, "--dir=") == 0) {
            options.dir = value;
        } else if (arg.compare(0, 10, "--pattern=") == 0) {
            options.pattern = value;
        } else if (arg == "--utc") {
            options.utc = true;
        } else if (arg == "--last" || arg.compare(0, 7, "--last=") == 0) {
            if (arg == "--last") {
                value = i + 1 < args.size() ? args[++i] : std::string();
            }
            char* end = nullptr;
            options.last = std::strtoll(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || options.last < 0) {
                error = "--last " + value + ": not a number of records";
                return false;
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            error = "unknown option " + arg;
            return false;
        } else {
            options.operands.push_back(arg);
        }
    }
    return true;
}

// Alive while its process holds the lock; a test lock never disturbs the writer.
bool isAlive(const std::string& path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const bool alive = fd >= 0 && flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    if (fd >= 0) {
        close(fd);
    }
    return alive;
}

std::string localTime(long long seconds)
{
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[32] = "-";
    if (localtime_r(&time, &parts) != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    }
    return text;
}

std::string application(const CRingHeader& header) { return header.applicationKnown ? header.application : "?"; }

// Every ring of the directory that this user may read, oldest first; the others are reported.
std::vector<CFoundRing> findRings(const std::string& dir)
{
    std::vector<CFoundRing> found;
    DIR* stream = opendir(dir.c_str());
    if (stream == nullptr) {
        std::fprintf(stderr, "vexlorctl: no rings in %s: %s\n", dir.c_str(), std::strerror(errno));
        return found;
    }
    while (const dirent* entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name[0] == '.' || name.size() < 6 || name.compare(name.size() - 5, 5, ".ring") != 0) {
            continue;
        }
        CFoundRing ring;
        ring.path = dir + "/" + name;
        std::string error;
        if (!readRingFile(ring.path, ring.ring, error)) {
            std::fprintf(stderr, "vexlorctl: %s\n", error.c_str());
            continue;
        }
        ring.alive = isAlive(ring.path);
        found.push_back(std::move(ring));
    }
    closedir(stream);
    std::sort(found.begin(), found.end(), [](const CFoundRing& a, const CFoundRing& b) {
        const CRingHeader& x = a.ring.header;
        const CRingHeader& y = b.ring.header;
        return x.createdSeconds != y.createdSeconds ? x.createdSeconds < y.createdSeconds
                                                    : x.createdMicroseconds < y.createdMicroseconds;
    });
    return found;
}

// The ring that `what` names: a file, else the newest ring of that pid or application name
// (a live one first).
bool chooseRing(const COptions& options, const std::string& what, CFoundRing& chosen)
{
    const bool isPid = what.find_first_not_of("0123456789") == std::string::npos;
    if (what.find('/') != std::string::npos || (!isPid && what.size() > 5 && what.rfind(".ring") == what.size() - 5)) {
        chosen.path =
            what.find('/') != std::string::npos || access(what.c_str(), F_OK) == 0 ? what : options.dir + "/" + what;
        std::string error;
        if (!readRingFile(chosen.path, chosen.ring, error)) {
            std::fprintf(stderr, "vexlorctl: %s\n", error.c_str());
            return false;
        }
        return true;
    }
    std::vector<CFoundRing> matching;
    for (CFoundRing& ring : findRings(options.dir)) {
        if (isPid ? std::to_string(ring.ring.header.pid) == what : ring.ring.header.application == what) {
            matching.push_back(std::move(ring));
        }
    }
    if (matching.empty()) {
        std::fprintf(stderr, "vexlorctl: no ring of %s \"%s\" in %s (see vexlorctl rings)\n",
                     isPid ? "process" : "application", what.c_str(), options.dir.c_str());
        return false;
    }
    auto best = std::find_if(matching.rbegin(), matching.rend(), [](const CFoundRing& r) { return r.alive; });
    chosen = std::move(best != matching.rend() ? *best : matching.back());
    if (matching.size() > 1) {
        std::fprintf(stderr, "vexlorctl: %zu rings match; this is %s (name the file for another)\n", matching.size(),
                     chosen.path.c_str());
    }
    return true;
}

}  // namespace

int ringsCommand(const std::vector<std::string>& args)
{
    COptions options;
    std::string error;
    if (!parseOptions(args, options, error) || !options.operands.empty()) {
        return usage(error.empty() ? "rings takes no operand" : error);
    }
    const CBootId boot = currentBootId();
    std::printf("%-8s %-20s %-6s %-8s %8s  %-19s  %-19s  %s\n", "PID", "APPLICATION", "STATE", "BOOT", "RECORDS",
                "FIRST", "LAST", "FILE");
    for (const CFoundRing& found : findRings(options.dir)) {
        const CRing& ring = found.ring;
        const bool empty = ring.records.empty();
        std::printf("%-8d %-20s %-6s %-8s %8zu  %-19s  %-19s  %s\n", ring.header.pid, application(ring.header).c_str(),
                    found.alive ? "alive" : "ended", ring.header.bootId == boot ? "this" : "earlier",
                    ring.records.size(), empty ? "-" : localTime(ring.records.front().seconds).c_str(),
                    empty ? "-" : localTime(ring.records.back().seconds).c_str(),
                    found.path.substr(found.path.rfind('/') + 1).c_str());
    }
    return 0;
}

int dumpCommand(const std::vector<std::string>& args)
{
    COptions options;
    std::string error;
    if (!parseOptions(args, options, error) || options.operands.size() != 1) {
        return usage(error.empty() ? "dump takes one pid, application name or file" : error);
    }
    std::unique_ptr<CLineLayout> layout;
    try {
        layout = std::make_unique<CLineLayout>(options.pattern, options.utc);
    } catch (const std::invalid_argument& e) {
        return usage(e.what());
    }
    CFoundRing found;
    if (!chooseRing(options, options.operands[0], found)) {
        return EXIT_FAILED;
    }
    const CRing& ring = found.ring;
    const std::string appname = application(ring.header);
    const std::size_t held = ring.records.size();
    const std::size_t shown = options.last < 0 ? held : std::min(held, static_cast<std::size_t>(options.last));
    for (std::size_t i = held - shown; i < held; ++i) {
        const CRingRecord& r = ring.records[i];
        const vexlor_level level{r.level, r.level < 32 ? 1u << r.level : 0u};
        CLineBuffer line;
        layout->format(line,
                       CLogRecord{r.pid, r.depth, r.seconds, r.microseconds, &level, r.thread, r.component, r.function,
                                  r.message, appname});
        line.append('\n');
        std::fwrite(line.data(), 1, line.size(), stdout);
    }
    std::printf("-- %zu records printed", shown);
    if (shown != held) {
        std::printf(" (of %zu held)", held);
    }
    std::printf(", %llu overwritten before the oldest one held, %llu torn or corrupt skipped%s%s\n",
                static_cast<unsigned long long>(ring.overwritten), static_cast<unsigned long long>(ring.skipped),
                ring.changing ? "; the process wrote while it was read, so some of those are records written then" : "",
                ring.truncated ? "; the file is shorter than its header says" : "");
    return 0;
}
