// A record's message formatted from the caller's printf-style arguments: cut to 2047 characters,
// and an empty message for a null format (a caller error) or a conversion that cannot be written.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

namespace vx {

constexpr std::size_t MESSAGE_BUFFER_SIZE = 2048;  // messages are cut to one less

// Into a fixed buffer; returns the message's length.
std::size_t formatMessage(char (&buffer)[MESSAGE_BUFFER_SIZE], const char* format, va_list args)
    __attribute__((format(printf, 2, 0)));

// Straight into `message`, which keeps its capacity from one record to the next, with no copy.
void formatMessage(std::string& message, const char* format, va_list args) __attribute__((format(printf, 2, 0)));

}  // namespace vx
