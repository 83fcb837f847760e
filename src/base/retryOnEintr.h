// The one place that retries a system call interrupted by a signal. Never use it for close():
// on Linux the descriptor is gone even when close() reports EINTR.
#pragma once

#include <cerrno>

namespace vx {

template <typename Call>
auto retryOnEintr(Call call) -> decltype(call())
{
    decltype(call()) result;
    do {
        result = call();
    } while (result == -1 && errno == EINTR);
    return result;
}

}  // namespace vx
