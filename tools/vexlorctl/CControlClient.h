// Asks one process's control target one question (see interop/controlProtocol.h).
#pragma once

#include <string>
#include <vector>

struct CControlReply {
    enum EStatus {
        ok,  // `lines` holds the answer
        error,  // the program refused or failed; `text` says why
        gone,  // no such process, or it ended while answering
        notControllable  // the process runs but serves no control socket, or does not answer
    };
    EStatus status = error;
    std::string text;  // one line for stderr when not ok
    std::vector<std::vector<std::string>> lines;  // the answer's lines, split into fields
};

CControlReply askProcess(int pid, const std::vector<std::string>& request);
