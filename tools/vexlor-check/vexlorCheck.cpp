// vexlor-check: checks configuration files before they are deployed, reading them with the
// library's own reader and grammar and changing nothing; --install writes a checked file over
// the one in force, in place. Exit status 0 when every file would be read without problems,
// 1 for warnings with --strict, 2 for errors (and usage errors).
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "CFileCheck.h"
#include "fileSafety.h"
#include "targetLoad.h"

namespace {

constexpr int EXIT_WARNINGS = 1;
constexpr int EXIT_ERRORS = 2;

const char* const USAGE = "usage: vexlor-check [--load] [--strict] FILE...\n"
                          "       vexlor-check [--load] [--strict] [--force] --install NEW FILE\n"
                          "Reads each FILE as the library does and prints what programs would make of it.\n"
                          "  --load     also create each target through its library's factory, and hand it back\n"
                          "  --strict   exit with status 1 when there are warnings\n"
                          "  --install  check NEW, then write it over FILE in place (running programs read it again)\n"
                          "  --force    with --install: write FILE even if it is a symbolic link or lies in a\n"
                          "             directory that another user can write\n"
                          "Exit status: 0 no problems, 1 warnings with --strict, 2 errors.\n";

const char* const IN_PLACE =
    "Edit in place so that running programs read the file again (cat new > file, cp new file, vexlor-check "
    "--install new file): a rename over it (mv, sed -i, some editors) ends their watching until they restart.\n";

struct COptions {
    bool load = false;
    bool strict = false;
    bool install = false;
    bool force = false;
};

void print(const std::string& name, const CFileCheck& check)
{
    std::vector<CFinding> findings = check.findings();
    std::stable_sort(findings.begin(), findings.end(),
                     [](const CFinding& a, const CFinding& b) { return a.line < b.line; });
    std::printf("%s:\n", name.c_str());
    for (const CFinding& finding : findings) {
        const char* severity = finding.severity == CFinding::error ? "error: "
            : finding.severity == CFinding::warning                ? "warning: "
                                                                   : "";
        if (finding.line != 0) {
            std::printf("  line %d: %s%s\n", finding.line, severity, finding.text.c_str());
        } else {
            std::printf("  %s%s\n", severity, finding.text.c_str());
        }
    }
    std::printf("  %d error(s), %d warning(s)\n", check.count(CFinding::error), check.count(CFinding::warning));
}

// The exit status of `check`, run and printed.
int checkOne(CFileCheck& check, const std::string& path, const COptions& options)
{
    check.run();
    if (options.load && check.count(CFinding::error) == 0) {
        loadTargets(check);
    }
    print(path, check);
    if (check.count(CFinding::error) != 0) {
        return EXIT_ERRORS;
    }
    return options.strict && check.count(CFinding::warning) != 0 ? EXIT_WARNINGS : 0;
}

bool cannotWrite(const std::string& file, const char* what)
{
    std::fprintf(stderr, "vexlor-check: %s \"%s\" failed: %s\n", what, file.c_str(), std::strerror(errno));
    return false;
}

// Truncates and rewrites `file`, keeping its inode: the programs' watch stays on it and fires
// when it is closed. Without --force a link planted after the check is not followed either.
bool writeInPlace(const std::string& content, const std::string& file, bool force)
{
    const int fd =
        open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (force ? 0 : O_NOFOLLOW), 0644);
    if (fd < 0) {
        return cannotWrite(file, "opening");
    }
    struct stat status { };
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(fd);
        std::fprintf(stderr, "vexlor-check: \"%s\" is not a regular file: not writing it\n", file.c_str());
        return false;
    }
    if (ftruncate(fd, 0) != 0) {
        close(fd);
        return cannotWrite(file, "truncating");
    }
    for (std::size_t written = 0; written < content.size();) {
        const ssize_t n = write(fd, content.data() + written, content.size() - written);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            close(fd);
            return cannotWrite(file, "writing");
        }
        written += static_cast<std::size_t>(n);
    }
    return close(fd) == 0 || cannotWrite(file, "closing");
}

// Writes exactly the bytes that were checked: `from` is read once.
int install(const std::string& from, const std::string& file, const COptions& options)
{
    CFileCheck check(from, file);
    int status = checkOne(check, from, options);
    const std::string unsafe = unsafeDestination(file);
    if (status == 0 && !unsafe.empty() && !options.force) {
        std::fprintf(stderr, "vexlor-check: %s (--force writes it all the same)\n", unsafe.c_str());
        status = EXIT_ERRORS;
    }
    if (status != 0) {
        std::fprintf(stderr, "vexlor-check: \"%s\" left unchanged\n", file.c_str());
        return status;
    }
    if (!writeInPlace(check.content(), file, options.force)) {
        return EXIT_ERRORS;
    }
    std::printf("Wrote \"%s\" over \"%s\" in place: running programs read it again.\n", from.c_str(), file.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    COptions options;
    const option longOptions[] = {{"load", no_argument, nullptr, 'l'},    {"strict", no_argument, nullptr, 's'},
                                  {"install", no_argument, nullptr, 'i'}, {"force", no_argument, nullptr, 'f'},
                                  {"help", no_argument, nullptr, 'h'},    {nullptr, 0, nullptr, 0}};
    for (int option; (option = getopt_long(argc, argv, "h", longOptions, nullptr)) != -1;) {
        switch (option) {
        case 'l': options.load = true; break;
        case 's': options.strict = true; break;
        case 'i': options.install = true; break;
        case 'f': options.force = true; break;
        case 'h': std::fputs(USAGE, stdout); return 0;
        default: std::fputs(USAGE, stderr); return EXIT_ERRORS;
        }
    }
    const std::vector<std::string> files(argv + optind, argv + argc);
    if (files.empty() || (options.install && files.size() != 2) || (options.force && !options.install)) {
        std::fputs(USAGE, stderr);
        return EXIT_ERRORS;
    }
    int status = 0;
    if (options.install) {
        status = install(files[0], files[1], options);
    } else {
        for (const std::string& file : files) {
            CFileCheck check(file, file);
            status = std::max(status, checkOne(check, file, options));
        }
    }
    std::fputs(IN_PLACE, stdout);
    return status;
}
