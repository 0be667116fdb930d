// Fixed-point arithmetic that all signal processing shares.
//
// Qn is an integer with n binary places: 1.0 is 1 << n. Right shifts of negative numbers round toward minus
// infinity, which C++20 defines; so every target computes the same bits. Floating point occurs only in constexpr
// functions, which the compiler evaluates: its result is rounded to an integer before it becomes a table.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace zep {

inline constexpr double kPi = 3.14159265358979323846;
inline constexpr double kLn2 = 0.69314718055994530942;

// Series for tables. Each is accurate to the last place of a double in its range, so that rounding to 30 binary
// places gives the same table with every compiler.
constexpr double sin_series(double x) // |x| <= pi
{
    double term = x, sum = x;
    for (int n = 1; n < 20; ++n) sum += term *= -x * x / ((2 * n) * (2 * n + 1));
    return sum;
}

constexpr double cos_series(double x) { return 1 - 2 * sin_series(x / 2) * sin_series(x / 2); }

constexpr double exp_series(double x) // |x| <= 16
{
    double term = 1, sum = 1;
    const double small = x / 16; // then squared four times
    for (int n = 1; n < 20; ++n) sum += term *= small / n;
    for (int i = 0; i < 4; ++i) sum *= sum;
    return sum;
}

constexpr double log2_series(double x) // 1 <= x <= 2
{
    const double y = (x - 1) / (x + 1);
    double power = y, sum = 0;
    for (int n = 1; n < 60; n += 2, power *= y * y) sum += power / n;
    return 2 * sum / kLn2;
}

constexpr int32_t nearest(double x) { return int32_t(x < 0 ? x - 0.5 : x + 0.5); }

// The one limiter of samples.
template<class T> constexpr int16_t saturate(T v)
{
    return int16_t(v > INT16_MAX ? INT16_MAX : v < INT16_MIN ? INT16_MIN : v);
}

// The one limiter of everything else: into -limit..limit.
constexpr int32_t clamp_to(int64_t v, int32_t limit)
{
    if (v > limit) return limit;
    return v < -limit ? -limit : int32_t(v);
}

constexpr int64_t square(int64_t v) { return v * v; }

// Places of v: 0 for 0, n for 2^(n-1) .. 2^n - 1.
constexpr int bits_of(uint64_t v) { return int(std::bit_width(v)); }

// a / b scaled by 2^q and held to `most`; a and b below 2^62, b above 0. Of a quotient that would not fit, both
// lose the same low bits first.
inline int64_t ratio(int64_t a, int64_t b, int q, int64_t most)
{
    int down = bits_of(uint64_t(a)) + q - 63;
    if (down > 0) {
        a >>= down;
        b >>= down;
    }
    if (b == 0) return most;
    int64_t r = (a << q) / b;
    return r < most ? r : most;
}

// Whole part of the square root, by Newton's iteration from above.
inline uint32_t root(uint64_t v)
{
    if (v == 0) return 0;
    uint64_t x = uint64_t(1) << ((bits_of(v) + 1) / 2);
    for (;;) {
        uint64_t y = (x + v / x) >> 1;
        if (y >= x) return uint32_t(x);
        x = y;
    }
}

// log2(1 + i / 32), Q24. A line between two entries is at most 0.00018 too low, that is 0.0005 dB of a power.
inline constexpr auto kLog2Table = [] {
    std::array<int32_t, 33> t{};
    for (int i = 0; i <= 32; ++i) t[size_t(i)] = nearest(log2_series(1 + i / 32.0) * (1 << 24));
    return t;
}();

// The table's value `at_q24` of the way from its first entry to its last.
constexpr int32_t between(const std::array<int32_t, 33>& table, uint32_t at_q24)
{
    const size_t i = at_q24 >> 19;
    const int64_t rest = at_q24 & ((1 << 19) - 1);
    return table[i] + int32_t((table[i + 1] - table[i]) * rest >> 19);
}

// log2 of x > 0, Q24.
inline int32_t log2_q24(uint64_t x)
{
    const int lead = std::countl_zero(x);
    const uint32_t mantissa = uint32_t((x << lead) >> 39) & ((1u << 24) - 1);
    return between(kLog2Table, mantissa) + (63 - lead) * (1 << 24);
}

} // namespace zep
