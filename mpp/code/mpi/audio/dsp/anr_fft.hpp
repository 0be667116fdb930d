// Fourier transform of 256 or 512 real points, 32-bit fixed point.
#pragma once
#include <cstdint>

namespace zep::anr {

struct Complex {
    int32_t re, im;
};

inline constexpr int kMaxWindow = 512;
inline constexpr int kMaxLines = kMaxWindow / 2 + 1;

/**
 * lines[k] = 1/n * sum over i of x[i] exp(-2 pi i k / n), k = 0..n/2.
 *
 * @param n     256 or 512
 * @param x     |x| <= 2^29, so that no intermediate value leaves 32 bits; destroyed
 */
void real_forward(int n, int32_t* x, Complex* lines);

/** The inverse without the factor: x = sum over k of line[k] exp(...). The lines are destroyed. */
void real_inverse(int n, Complex* lines, int32_t* x);

} // namespace zep::anr
