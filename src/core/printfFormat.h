// printf-style formatting of log messages: the conversions that log messages use are done here in
// one pass, without allocation or locale; anything else goes to vsnprintf for the whole message.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace vx {

// vsnprintf's contract and, byte for byte, glibc's result: writes at most size - 1 characters and a
// terminating zero (nothing at all when size is 0) and returns the length of the whole text, or -1
// where vsnprintf fails. Unlike vsnprintf it may write anywhere in the buffer past the terminating
// zero: a piece of text is stored in whole blocks, which costs less than an exact copy. Handled
// here: %d %i %u %x %X %o %c %s %p %% with the flags "-+ #0", width, precision, '*' for both and
// the length modifiers hh h l ll z j t.
int formatPrintf(char* buffer, std::size_t size, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));

}  // namespace vx
