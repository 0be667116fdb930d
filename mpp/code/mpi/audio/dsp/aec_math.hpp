// Integer arithmetic that the echo canceller's parts share.
#ifndef MPI_AUDIO_AEC_MATH_HPP
#define MPI_AUDIO_AEC_MATH_HPP

#include <bit>
#include <cstddef>
#include <cstdint>

namespace zep {

inline constexpr double kAecPi = 3.14159265358979323846;

// Sine (term = a, from = 1) and cosine (term = 1, from = 0) by their series, for tables that the
// compiler computes: a is at most pi / 2.
constexpr double aec_series(double a, double term, int from)
{
    double sum = 0;
    for (int i = from; i < from + 24; i += 2) {
        sum += term;
        term *= -a * a / ((i + 1) * (i + 2));
    }
    return sum;
}

// Places of v: 0 for 0, n for 2^(n-1) .. 2^n - 1.
inline int bits_of(uint64_t v) { return int(std::bit_width(v)); }

inline int64_t square(int64_t v) { return v * v; }

inline int32_t clamp_to(int64_t v, int32_t limit)
{
    if (v > limit) return limit;
    return v < -limit ? -limit : int32_t(v);
}

inline int16_t to_sample(int64_t v)
{
    if (v > INT16_MAX) return INT16_MAX;
    return v < INT16_MIN ? int16_t(INT16_MIN) : int16_t(v);
}

// a / b scaled by 2^q and held to `most`; a and b below 2^62, b above 0.
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

// Whole part of the square root.
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

} // namespace zep

#endif
