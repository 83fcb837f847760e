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

// The bytes both define for a result of `length` in a buffer of `size`: the text up to the cut and
// its terminating zero. The rest of the buffer is the formatter's scratch space.
inline std::size_t definedBytes(int length, std::size_t size)
{
    if (size == 0 || length < 0) {
        return 0;
    }
    const auto whole = static_cast<std::size_t>(length);
    return (whole < size - 1 ? whole : size - 1) + 1;
}
