// Real Fourier transform of 160 or 320 points in 32-bit fixed point, for the echo canceller.
//
// A real transform of n points is a complex one of n / 2 (80 = 5 * 4 * 4 or 160 = 5 * 4 * 4 * 2),
// done as Stockham's self-sorting algorithm, and one unpacking pass.
#ifndef MPI_AUDIO_AEC_FFT_HPP
#define MPI_AUDIO_AEC_FFT_HPP

#include <cstdint>

namespace zep {

struct AecComplex {
    int32_t re;
    int32_t im;
};

inline constexpr int kAecMaxBlock = 160;
inline constexpr int kAecMaxSize = 2 * kAecMaxBlock; // points of a transform
inline constexpr int kAecMaxBins = kAecMaxBlock + 1;

// spectrum[0 .. n/2] = sum over i of x[i] exp(-2 pi j i k / n), not scaled. The sum of |x| must stay
// below 2^29.
void aec_fft_forward(int n, const int32_t* x, AecComplex* spectrum);

// The inverse, scaled by 1 / n: x has the spectrum's scale. Components must stay within +-2^27.
void aec_fft_inverse(int n, const AecComplex* spectrum, int32_t* x);

} // namespace zep

#endif
