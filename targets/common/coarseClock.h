// A cheap monotonic clock for pacing checks and retries: read through the vDSO, no system call,
// a few milliseconds coarse.
#pragma once

#include <ctime>

inline long long coarseMilliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
