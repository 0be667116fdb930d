// Numbers of the noise reducer: tables made at compile time, logarithm, limits. Qn has n binary places.
#pragma once
#include <array>
#include <bit>
#include <cstdint>
#include <stddef.h>

namespace zep::anr {

inline constexpr double kPi = 3.14159265358979323846;

// Series for the compiler; accurate to the last place of a double in the range used (|x| <= pi).
constexpr double sin_series(double x)
{
    double term = x, sum = x;
    for (int n = 1; n < 20; ++n) sum += term *= -x * x / ((2 * n) * (2 * n + 1));
    return sum;
}

constexpr double cos_series(double x) { return 1 - 2 * sin_series(x / 2) * sin_series(x / 2); }

constexpr double exp_series(double x)
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
    return 2 * sum / 0.69314718055994530942;
}

constexpr int32_t nearest(double x) { return int32_t(x < 0 ? x - 0.5 : x + 0.5); }

template<typename T> constexpr T limit(T x, T low, T high) { return x < low ? low : x > high ? high : x; }

constexpr int16_t saturate(int32_t x) { return int16_t(limit<int32_t>(x, INT16_MIN, INT16_MAX)); }

inline constexpr auto kLog2Table = [] {
    std::array<uint8_t, 256> t{};
    for (int i = 0; i < 256; ++i) {
        const int32_t v = nearest(256 * log2_series(1 + (i + 0.5) / 256));
        t[size_t(i)] = uint8_t(v > 255 ? 255 : v);
    }
    return t;
}();

// log2 of x > 0, Q8
inline int32_t log2_q8(uint64_t x)
{
    const int e = 63 - std::countl_zero(x);
    const uint32_t mantissa = uint32_t((x << (63 - e)) >> 55) & 255;
    return (e << 8) + kLog2Table[mantissa];
}

// 1 / (1 + exp(-x)) of x = -8..8 in steps of 1/64, Q15
inline constexpr auto kSigmoidTable = [] {
    std::array<int16_t, 1025> t{};
    for (int i = 0; i < 1025; ++i) {
        const int32_t v = nearest(32768 / (1 + exp_series(8 - i / 64.0)));
        t[size_t(i)] = int16_t(v > 32767 ? 32767 : v);
    }
    return t;
}();

// Q16 to Q15
inline int16_t sigmoid_q15(int32_t x)
{
    return kSigmoidTable[size_t((limit<int32_t>(x, -(8 << 16), 8 << 16) + (8 << 16) + 512) >> 10)];
}

// tanh x = 2 sigmoid 2x - 1
inline int16_t tanh_q15(int32_t x)
{
    return saturate(2 * sigmoid_q15(2 * limit<int32_t>(x, -(8 << 16), 8 << 16)) - 32768);
}

} // namespace zep::anr
