// Formatting a record's message (see formatMessage.h). Built as C++23 where the compiler offers
// it: std::string::resize_and_overwrite lets the formatter write into the kept string's own
// buffer and then sets its length, without the zero fill of resize() or the copy of assign().
#include "core/formatMessage.h"

#include "core/printfFormat.h"

namespace vx {
namespace {

__attribute__((format(printf, 3, 0))) std::size_t formatInto(char* buffer, std::size_t size, const char* format,
                                                             va_list args)
{
    if (format == nullptr) {
        buffer[0] = '\0';
        return 0;
    }
    const int length = formatPrintf(buffer, size, format, args);
    if (length < 0) {
        buffer[0] = '\0';
        return 0;
    }
    return static_cast<std::size_t>(length) < size ? static_cast<std::size_t>(length) : size - 1;
}

}  // namespace

std::size_t formatMessage(char (&buffer)[MESSAGE_BUFFER_SIZE], const char* format, va_list args)
{
    return formatInto(buffer, sizeof buffer, format, args);
}

void formatMessage(std::string& message, const char* format, va_list args)
{
#if defined(__cpp_lib_string_resize_and_overwrite)
    // The operation may write one character past `room`: the terminating zero.
    message.resize_and_overwrite(MESSAGE_BUFFER_SIZE - 1, [&](char* buffer, std::size_t room) {
        return formatInto(buffer, room + 1, format, args);
    });
#else
    char buffer[MESSAGE_BUFFER_SIZE];
    message.assign(buffer, formatMessage(buffer, format, args));
#endif
}

}  // namespace vx
