// Asks running programs' control targets one question (see interop/controlProtocol.h).
#pragma once

#include <string>
#include <vector>

#include "CAnswerReader.h"
#include "processList.h"

struct CControlReply {
    enum EStatus {
        ok,  // `lines` holds the answer
        error,  // the program refused or failed; `text` says why
        gone,  // no such process, or it ended while answering
        notControllable  // the process serves no control socket of its own, or does not answer
    };
    EStatus status = error;
    std::string text;  // one line for stderr when not ok; may hold the program's own words
    CLines lines;  // the answer's lines, split into fields
};

// Asks `pid` on the first of its control names (`names`, else the plain one) that the process
// itself serves as root or as its own user, with one deadline for the whole exchange and the
// answer bounded in size.
CControlReply askProcess(int pid, const std::vector<std::string>& names, const std::vector<std::string>& request);
// The same with the names the kernel lists now.
CControlReply askProcess(int pid, const std::vector<std::string>& request);
// Asks every process, several at a time: one that is slow to answer delays only its own line.
std::vector<CControlReply> askEach(const std::vector<int>& pids, const CControlNames& names,
                                   const std::vector<std::string>& request);
