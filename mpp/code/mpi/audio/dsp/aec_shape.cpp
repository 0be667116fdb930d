// Minimum-phase filter from gains, through the real cepstrum.
//
// Of all filters with given gains the minimum-phase one has its energy earliest, so nothing waits for a block: a
// linear-phase filter would delay by half its taps, overlap-add by a block. The cepstrum of the gains' logarithm,
// folded onto positive times, is that of the filter; its exponential is taken by the recursion
// n h[n] = sum of k c[k] h[n - k], which costs 48 * 48 / 2 products instead of two more transforms and has no
// aliasing in time.
#include "mpi/audio/dsp/aec_shape.hpp"

#include "mpi/audio/dsp/aec_block.hpp"
#include "mpi/audio/dsp/fixed_point.hpp"

#include <algorithm>
#include <array>

namespace zep {
namespace {

constexpr int64_t kLn2Q16 = nearest(kLn2 * (1 << 16));
constexpr int kMostTaps = 48;

// 2^(i / 32), Q24.
constexpr auto kPowers = [] {
    std::array<int32_t, 33> t{};
    for (int i = 0; i <= 32; ++i) t[size_t(i)] = nearest(exp_series(i * kLn2 / 32) * (1 << 24));
    return t;
}();

// 2^v, Q24, for v of at most 0.
int32_t power_of_two(int32_t v_q24)
{
    const int whole = v_q24 >> 24;
    const int32_t mantissa = between(kPowers, uint32_t(v_q24 - whole * (1 << 24)));
    return whole < -30 ? 0 : mantissa >> -whole;
}

// Q24 to Q14, with an absolute sum below 4, so that 32 bits hold a sum of products with 16-bit samples.
void to_taps(const int32_t* h, int16_t* taps, int count)
{
    int32_t sum = 0;
    for (int n = 0; n < count; ++n) {
        taps[n] = saturate((h[n] + 512) >> 10);
        sum += std::abs(int32_t(taps[n]));
    }
    if (sum < 65536) return;
    for (int n = 0; n < count; ++n) taps[n] = int16_t(int64_t(taps[n]) * 65535 / sum);
}

} // namespace

void aec_shape(int block, const int32_t* gain_q15, int16_t* taps, int count)
{
    Complex log[kAecMaxBins];
    int32_t cepstrum[kAecMaxSize];
    for (int k = 0; k <= block; ++k) log[k] = {log2_q24(uint64_t(gain_q15[k])) - (15 << 24), 0};
    aec_fft(block).inverse(log, cepstrum);

    // h = exp(c), see above.
    int32_t h[kMostTaps], slope[kMostTaps];
    h[0] = power_of_two(std::min(cepstrum[0], 0));
    for (int n = 1; n < count; ++n) {
        slope[n] = int32_t(int64_t(cepstrum[n]) * 2 * n * kLn2Q16 >> 20); // Q20, natural logarithm
        int64_t sum = 0;
        for (int k = 1; k <= n; ++k) sum += int64_t(slope[k]) * h[n - k];
        h[n] = clamp_to((sum >> 20) / n, 1 << 25);
    }
    to_taps(h, taps, count);
}

} // namespace zep
