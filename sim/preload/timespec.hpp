// Times as the C library's records carry them, in the width of either time_t.
#pragma once

#include <cstdint>
#include <ctime>
#include <sys/time.h>

namespace vcam {

// The records behind the names that 32-bit programs with 64-bit time call.
struct Timespec64 {
    int64_t tv_sec;
    int32_t tv_nsec;
    int32_t pad;
};
struct Timeval64 {
    int64_t tv_sec;
    int64_t tv_usec;
};
static_assert(sizeof(Timespec64) == 16);

template<class Spec> int64_t ns_of(const Spec& t)
{
    constexpr int64_t kMost = INT64_MAX / 4; // for ever, and no sum with it overflows
    if (int64_t(t.tv_sec) >= kMost / 1'000'000'000) return kMost;
    return int64_t(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

template<class Spec> Spec spec_of(int64_t ns)
{
    Spec t{};
    t.tv_sec = decltype(t.tv_sec)(ns / 1'000'000'000);
    t.tv_nsec = decltype(t.tv_nsec)(ns % 1'000'000'000);
    return t;
}

template<class Val> Val val_of(int64_t ns)
{
    Val t{};
    t.tv_sec = decltype(t.tv_sec)(ns / 1'000'000'000);
    t.tv_usec = decltype(t.tv_usec)(ns % 1'000'000'000 / 1000);
    return t;
}

template<class Val> int64_t ns_of_val(const Val& t)
{
    return ns_of(timespec{time_t(t.tv_sec), 0}) + int64_t(t.tv_usec) * 1000;
}

} // namespace vcam
