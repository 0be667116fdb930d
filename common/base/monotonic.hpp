// A clock that only goes forward, whatever is set meanwhile.
#pragma once

#include <cstdint>
#include <ctime>

namespace zep {

inline int64_t monotonic_ms()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

} // namespace zep
