// See writeFully.h.
#include "writeFully.h"

#include <cerrno>
#include <unistd.h>

int writeFully(int fd, const char* data, std::size_t length, std::size_t& written)
{
    written = 0;
    while (written < length) {
        const ssize_t done = ::write(fd, data + written, length - written);
        if (done > 0) {
            written += static_cast<std::size_t>(done);
        } else if (done < 0 && errno != EINTR) {
            return errno;
        } else if (done == 0) {
            return EIO;  // a regular file or pipe never takes nothing without saying why
        }
    }
    return 0;
}
