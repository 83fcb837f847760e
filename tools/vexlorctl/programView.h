// How vexlorctl prints what a program says about its targets and its configuration file: escaped
// lines for the operator, one JSON object per program for scripts and monitoring agents. A
// program of another user may answer anything, so what is not well formed is left out.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "CAnswerReader.h"

struct CTargetRow {
    std::string name;
    std::string kind;
    std::string state;  // empty while the target works
    std::vector<std::pair<std::string, unsigned long long>> counters;  // written, dropped, lost, suppressed, ...
};

// The well-formed "target" lines of an answer (see controlProtocol.h): each with the four
// standard counters, and counter names of lower-case letters and "-" only.
std::vector<CTargetRow> targetRows(const CLines& lines);
// "file (file): written 12, dropped 0, lost 3, suppressed 0, rotations 1, reopens 0; write failed:
// No space left on device", escaped for the terminal.
std::string targetText(const CTargetRow& row);
// {"pid":4242,"application":"player","program":"player","targets":[{"name":"file","kind":"file",
// "state":"","written":12,...}]} on one line.
std::string statsJson(int pid, const std::string& application, const std::string& program,
                      const std::vector<CTargetRow>& rows);
// What the "config" line of `lines` says, in words for the operator: whether the program reads
// changes to its configuration file, and if not, why and what to do; empty without such a line.
std::string configText(const CLines& lines);
// `text` as a JSON string: valid UTF-8 with every control character escaped, and each byte that is
// not part of valid UTF-8 as U+FFFD.
std::string jsonString(const std::string& text);
