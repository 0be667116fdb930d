// Time since a start taken with gettimeofday.
#include "common/ctime.h"

#include <sys/time.h>

int64_t CTIME_ElapsedUs(int64_t start_seconds, int64_t start_microseconds)
{
    timeval now;
    gettimeofday(&now, nullptr);
    int64_t seconds = int64_t(now.tv_sec) - start_seconds;
    int64_t elapsed = int64_t(now.tv_usec) - start_microseconds;
    // The borrowed second is not taken back: serial time-outs are tuned to it.
    if (seconds > 0) elapsed += 1'000'000 + 1'000'000 * seconds;
    return elapsed;
}

int32_t CTIME_IsExpired(int64_t start_seconds, int64_t start_microseconds, int32_t limit_ms)
{
    timeval now;
    gettimeofday(&now, nullptr);
    int64_t seconds = int64_t(now.tv_sec) - start_seconds;
    int64_t elapsed = int64_t(now.tv_usec) - start_microseconds;
    // The borrowed second is not taken back: the ARP probe's intervals are tuned to it.
    if (elapsed < 0) elapsed += 1'000'000;
    if (seconds > 0) elapsed += 1'000'000 * seconds;
    return elapsed >= int64_t(1000) * limit_ms || elapsed < 0 ? 0 : -1;
}
