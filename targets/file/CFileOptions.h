// The file target's parameters, read and checked once when the target is created.
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>

#include <vexlor/vexlor_target.h>

struct CFileOptions {
    std::string path;  // path= as written: may hold %a
    mode_t mode = 0640;  // mode=, octal; the umask applies
    unsigned long long maxSize = 0;  // max-size=; 0: no size rotation
    unsigned maxFiles = 5;  // max-files=: name.1 ... name.N are kept
    std::size_t bufferSize = 0;  // buffer=; 0: one write per record
    unsigned flushLevel = 4;  // flush-level=: this level number and lower are written at once
    long long flushMs = 1000;  // flush-ms=: the longest a record waits in the buffer

    // Throws std::invalid_argument naming the parameter and its value.
    static CFileOptions fromParameters(const CLogTargetParameters& parameters);
};

// `path` with %a replaced by the application name (the program's name until it sets one; a "/"
// in it becomes "_") and %% by %.
std::string expandPath(const std::string& path, const std::string& appname);
