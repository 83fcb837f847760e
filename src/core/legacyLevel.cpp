// Legacy level file: lookup of the program's entry, the syslog mask, the start-up message.
#include "core/legacyLevel.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <libgen.h>
#include <string>
#include <syslog.h>
#include <unistd.h>

#include "base/diag.h"
#include "core/CLevelSignalRelay.h"
#include "base/buildPaths.h"
#include "base/strtol32.h"

namespace vx {

namespace {

const std::string legacyLevelPath = VEXLOR_LEGACY_LEVEL_FILE;
constexpr int DEFAULT_LEVEL = LOG_DEBUG;

const char* programName() { return basename(program_invocation_short_name); }

// Priorities 0 to `level`; from 31 on, all 32 bits.
int maskUpTo(int level) { return level >= 31 ? -1 : static_cast<int>((1u << (level + 1)) - 1u); }

}  // namespace

int readLegacyLevel()
{
    FILE* file = fopen(legacyLevelPath.c_str(), "r");
    if (file == nullptr) {
        return -1;
    }
    const char* name = programName();
    // Lines longer than the buffer arrive in pieces; each piece is searched on its own.
    char piece[80];
    int level = -1;
    while (fgets(piece, sizeof piece, file) != nullptr) {
        char* match = strstr(piece, name);
        if (match == nullptr) {
            continue;
        }
        // A substring match counts: "log" matches a line "syslogd 3". The first match wins.
        char* rest = nullptr;
        strtok_r(match, " ", &rest);
        const char* levelToken = strtok_r(nullptr, " ", &rest);
        // A name with nothing after it is an unusable entry, like a negative level.
        if (levelToken != nullptr) {
            const int value = strtol32(levelToken);
            level = value < 0 ? -1 : value;
        }
        break;
    }
    fclose(file);
    return level;
}

void applyLegacyLevelFile()
{
    int level = readLegacyLevel();
    if (level == -1) {
        if (FILE* file = fopen(legacyLevelPath.c_str(), "a+")) {
            fprintf(file, "%s %i\n", programName(), DEFAULT_LEVEL);
            fclose(file);
        }
        level = DEFAULT_LEVEL;
    }
    setlogmask(maskUpTo(level));
    if (level != 0 && access(VEXLOR_SYSLOGD_PID_FILE, R_OK) == 0) {
        vx::diag(level, "[Log level for %s set to %d]", programName(), level);
    }
    CLevelSignalRelay::install();
}

void onLevelSignal()
{
    const int level = readLegacyLevel();
    if (level < 0) {
        return;
    }
    setlogmask(maskUpTo(level));
    if (level != 0) {
        vx::diag(level, "[loglevel for %s set to %d]", programName(), level);
    }
}

}  // namespace vx
