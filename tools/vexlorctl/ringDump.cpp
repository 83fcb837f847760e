// vexlorctl rings and vexlorctl dump: the recorder target's rings, listed and printed in the file
// target's line layout. They read the files only: a live process is never stopped or asked.
// Whoever can write a ring's directory chooses its bytes and names: they are read within bounds
// (openRingFile) and printed escaped (printable), and no link of another user's is followed.
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
#include <sys/stat.h>
#include <unistd.h>

#include "CLineLayout.h"
#include "directoryTrust.h"
#include "ringReader.h"
#include "terminalText.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

struct COptions {
    std::string dir = defaultRingDirectory();
    bool defaultDir = true;
    std::string pattern = CLineLayout::DEFAULT_PATTERN;
    bool utc = false;
    long long last = -1;  // every record
    std::vector<std::string> operands;
};

// What a listing keeps of a ring: its records stay in the file until one is dumped.
struct CFoundRing {
    std::string name;
    CRingHeader header;
    std::size_t held = 0;
    long long first = 0;  // seconds of the oldest and the newest record held
    long long last = 0;
    bool alive = false;
};

// The directory of the rings, open. Its owner's programs write the rings; a file of anyone else
// (root and this user excepted) is not one of theirs.
class CRingDirectory {
public:
    explicit CRingDirectory(const COptions& options)
        : m_path(options.dir)
    {
        std::string error;
        // The default one is private to this user, as the recorder makes it.
        m_fd = options.defaultDir ? openPrivateDirectory(m_path, false, error)
                                  : openDirectoryOfTrustedPath(m_path, false, error);
        if (m_fd < 0) {
            m_error = error + ": " + std::strerror(errno);
        } else if (fstat(m_fd, &m_status) != 0) {
            m_error = m_path + ": " + std::strerror(errno);
        }
    }
    ~CRingDirectory()
    {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    CRingDirectory(const CRingDirectory&) = delete;
    CRingDirectory& operator=(const CRingDirectory&) = delete;

    const std::string& error() const { return m_error; }
    const std::string& path() const { return m_path; }
    int fd() const { return m_fd; }
    bool ownerMayWrite(uid_t uid) const { return uid == 0 || uid == geteuid() || uid == m_status.st_uid; }

private:
    std::string m_path;
    std::string m_error;
    int m_fd = -1;
    struct stat m_status { };
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
            options.defaultDir = false;
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
bool isAlive(int fd) { return flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK; }

// What another user may have chosen, on stderr.
void warn(const std::string& text) { std::fprintf(stderr, "vexlorctl: %s\n", printable(text).c_str()); }

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

std::string application(const CRingHeader& header)
{
    return header.applicationKnown ? printable(header.application) : "?";
}

// The ring file `name` of `dir` (a path when `dir` is null), read whole into `ring`.
bool readRingOf(const CRingDirectory* dir, const std::string& name, CRing& ring, bool* alive = nullptr)
{
    struct stat status { };
    std::string error;
    const std::string path = dir != nullptr ? dir->path() + "/" + name : name;
    const int fd = openRingFile(dir != nullptr ? dir->fd() : AT_FDCWD, name, status, error);
    if (fd >= 0 && dir != nullptr && !dir->ownerMayWrite(status.st_uid)) {
        error = "belongs to uid " + std::to_string(status.st_uid) + ", not to the directory's owner: skipped";
    } else if (fd >= 0 && readRing(fd, ring, error)) {
        if (alive != nullptr) {
            *alive = isAlive(fd);
        }
        close(fd);
        return true;
    }
    if (fd >= 0) {
        close(fd);
    }
    warn(path + ": " + error);
    return false;
}

// Every ring of the directory that this user may read, oldest first; the others are reported.
std::vector<CFoundRing> findRings(const CRingDirectory& dir)
{
    std::vector<CFoundRing> found;
    const int listing = dir.fd() >= 0 ? dup(dir.fd()) : -1;
    DIR* stream = listing >= 0 ? fdopendir(listing) : nullptr;
    if (stream == nullptr) {
        warn("no rings in " + dir.path() + ": " + (dir.error().empty() ? std::strerror(errno) : dir.error()));
        if (listing >= 0) {
            close(listing);
        }
        return found;
    }
    while (const dirent* entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name[0] == '.' || name.size() < 6 || name.compare(name.size() - 5, 5, ".ring") != 0) {
            continue;
        }
        CRing ring;
        CFoundRing summary;
        if (!readRingOf(&dir, name, ring, &summary.alive)) {
            continue;
        }
        summary.name = name;
        summary.header = ring.header;
        summary.held = ring.records.size();
        if (!ring.records.empty()) {
            summary.first = ring.records.front().seconds;
            summary.last = ring.records.back().seconds;
        }
        found.push_back(std::move(summary));
    }
    closedir(stream);
    std::sort(found.begin(), found.end(), [](const CFoundRing& a, const CFoundRing& b) {
        const CRingHeader& x = a.header;
        const CRingHeader& y = b.header;
        return x.createdSeconds != y.createdSeconds ? x.createdSeconds < y.createdSeconds
                                                    : x.createdMicroseconds < y.createdMicroseconds;
    });
    return found;
}

// A symbolic link that root or this user made where nobody else can replace it leads to its file;
// anyone else's is not followed (openRingFile then says so).
std::string followTrustedLink(const std::string& path)
{
    struct stat link { };
    struct stat directory { };
    const std::size_t slash = path.rfind('/');
    const std::string parent = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    if (lstat(path.c_str(), &link) != 0 || !S_ISLNK(link.st_mode) || (link.st_uid != 0 && link.st_uid != geteuid()) ||
        stat(parent.c_str(), &directory) != 0 || !entryIsSafe(directory, link)) {
        return path;
    }
    char* target = realpath(path.c_str(), nullptr);
    const std::string followed = target != nullptr ? target : path;
    std::free(target);
    return followed;
}

// The ring that `what` names: a file, else the newest ring of that pid or application name
// (a live one first).
bool chooseRing(const COptions& options, const std::string& what, CRing& chosen)
{
    const bool isPid = what.find_first_not_of("0123456789") == std::string::npos;
    const bool isFile =
        what.find('/') != std::string::npos || (!isPid && what.size() > 5 && what.rfind(".ring") == what.size() - 5);
    if (isFile && (what.find('/') != std::string::npos || access(what.c_str(), F_OK) == 0)) {
        return readRingOf(nullptr, followTrustedLink(what), chosen);
    }
    const CRingDirectory dir(options);
    if (isFile) {
        return readRingOf(&dir, what, chosen);
    }
    std::vector<CFoundRing> matching;
    for (CFoundRing& ring : findRings(dir)) {
        if (isPid ? std::to_string(ring.header.pid) == what : ring.header.application == what) {
            matching.push_back(std::move(ring));
        }
    }
    if (matching.empty()) {
        warn("no ring of " + std::string(isPid ? "process" : "application") + " \"" + what + "\" in " + dir.path() +
             " (see vexlorctl rings)");
        return false;
    }
    auto best = std::find_if(matching.rbegin(), matching.rend(), [](const CFoundRing& r) { return r.alive; });
    const std::string name = (best != matching.rend() ? *best : matching.back()).name;
    if (matching.size() > 1) {
        warn(std::to_string(matching.size()) + " rings match; this is " + dir.path() + "/" + name +
             " (name the file for another)");
    }
    return readRingOf(&dir, name, chosen);
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
    for (const CFoundRing& found : findRings(CRingDirectory(options))) {
        const bool empty = found.held == 0;
        std::printf("%-8d %-20s %-6s %-8s %8zu  %-19s  %-19s  %s\n", found.header.pid,
                    application(found.header).c_str(), found.alive ? "alive" : "ended",
                    found.header.bootId == boot ? "this" : "earlier", found.held,
                    empty ? "-" : localTime(found.first).c_str(), empty ? "-" : localTime(found.last).c_str(),
                    printable(found.name).c_str());
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
    CRing ring;
    if (!chooseRing(options, options.operands[0], ring)) {
        return EXIT_FAILED;
    }
    const std::string appname = application(ring.header);
    const std::size_t held = ring.records.size();
    const std::size_t shown = options.last < 0 ? held : std::min(held, static_cast<std::size_t>(options.last));
    for (std::size_t i = held - shown; i < held; ++i) {
        const CRingRecord& r = ring.records[i];
        const vexlor_level level{r.level, r.level < 32 ? 1u << r.level : 0u};
        CLineBuffer line;
        // The layout escapes C0 controls as the file target does; C1 controls and broken UTF-8 too here.
        layout->format(line,
                       CLogRecord{r.pid, r.depth, r.seconds, r.microseconds, &level, printable(r.thread),
                                  printable(r.component), printable(r.function), printable(r.message), appname});
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
