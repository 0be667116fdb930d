// What the echo canceller's parts agree on: blocks, spectra and scales.
//
// A block is 10 ms (5 ms for frames of 80 points at 16 kHz). Every transform spans two blocks, because a product of
// spectra is a circular convolution: of two blocks of it, one is the linear convolution that an echo path makes.
//
//   samples            Q4    16 bits and 4 more, so that rounding stays 24 dB below a 16-bit step
//   spectra            Q4    not scaled by their length: at most 2^27 for full-scale noise
//   powers, energies   Q8    squares of the above, 64 bits
//   weights            Q22   1.0 is an echo as loud as its source, 32.0 the limit
//   variances          Q33   of a weight's error; below 0.25, so that they fit 31 bits
#pragma once

#include "mpi/audio/dsp/fft.hpp"

namespace zep {

inline constexpr int kAecSampleShift = 4;
inline constexpr int kAecWeightShift = 22;
inline constexpr int32_t kAecMostSpectrum = 1 << 27; // the inverse transform's limit
inline constexpr int kAecMaxBlock = 160;
inline constexpr int kAecMaxSize = 2 * kAecMaxBlock; // points of a transform
inline constexpr int kAecMaxBins = kAecMaxBlock + 1;

inline const Fft& aec_fft(int block) { return block == 80 ? kFft160 : kFft320; }

} // namespace zep
