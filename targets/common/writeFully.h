// Writing one whole buffer to a descriptor, as the shipped targets need it.
#pragma once

#include <cstddef>

// Writes all `length` bytes, calling write again after EINTR and after a short write. Returns 0,
// or the errno of the call that failed; `written` says how many bytes went out either way.
int writeFully(int fd, const char* data, std::size_t length, std::size_t& written);
