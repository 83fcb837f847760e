// The formatter and the C library's vsnprintf behind the same variadic signature, for the tests
// and the fuzz target that compare them.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "core/printfFormat.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

inline int ours(char* buffer, std::size_t size, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = vx::formatPrintf(buffer, size, format, args);
    va_end(args);
    return result;
}

inline int libc(char* buffer, std::size_t size, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = vsnprintf(buffer, size, format, args);
    va_end(args);
    return result;
}

#pragma GCC diagnostic pop
