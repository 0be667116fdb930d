// Real Fourier transforms of 160, 256, 320 and 512 points in 32-bit fixed point: blocks of 5 and 10 ms with the
// block before (echo canceller), windows of 32 ms (noise reducer).
#pragma once

#include <cstdint>

namespace zep {

struct Complex {
    int32_t re, im;
};

struct Fft {
    int size; // n: points

    // spectrum[0 .. n/2] = sum over i of x[i] exp(-2 pi j i k / n), not scaled: each doubling of n takes one bit
    // of the result, and small signals lose nothing to rounding. The sum of |x| must stay below 2^29.
    void (*forward)(const int32_t* x, Complex* spectrum);

    // The inverse, scaled by 1 / n: x has the spectrum's scale. Components must stay within +-2^27 for 160 and 320
    // points, magnitudes within 2^28 for the others.
    void (*inverse)(const Complex* spectrum, int32_t* x);
};

// One object a size, so that the linker keeps the tables of those only that a program uses.
extern const Fft kFft160, kFft256, kFft320, kFft512;

} // namespace zep
