// Filters of the fixed-ratio resamplers, and the sum of products they share.
//
// 16-bit coefficients are too coarse for images 94 dB down and 32-bit ones too slow for a processor that
// multiplies 16 by 16 bits. So a coefficient of Q bits is split: the few large ones in the middle have a
// coarse part in Q14, and a fine row in Q holds what is left of them and the small ones whole. Both sums fit
// 32 bits for any input, which is checked here at compile time.
//
// The numbers come from bench/dsp/design_rs.py.
#ifndef MPP_MPI_AUDIO_RESAMPLER_FILTERS_HPP
#define MPP_MPI_AUDIO_RESAMPLER_FILTERS_HPP

#include <array>
#include <cstdint>
#include <stddef.h>

namespace zep::resampler {

constexpr int kOne = 14; // sums are in Q14: 1 << kOne is one step of a sample

// A vector unit takes one output at a time, eight taps at once; other machines take four outputs at once so
// that what is loaded serves all of them.
#if defined(__SSE2__) || defined(__ARM_NEON)
constexpr int kLanes = 8;
constexpr int kOutputs = 1;
#else
constexpr int kLanes = 4;
constexpr int kOutputs = 4;
#endif

// Taps: coefficients, the first CoarseAt and what follows the next Coarse of them being small; Q: their
// scale.
template<int Taps, int CoarseAt, int Coarse, int Q> struct Filter {
    static constexpr int kTaps = Taps;
    static constexpr int kFine = (Taps + kLanes - 1) / kLanes * kLanes; // the rest are zero
    static constexpr int kCoarse = Coarse;
    static constexpr int kCoarseAt = CoarseAt;
    static constexpr int kShift = Q - kOne;
    static_assert(kShift > 0 && CoarseAt + Coarse <= Taps);

    alignas(16) int16_t fine[kFine] = {};
    alignas(16) int16_t coarse[kCoarse] = {};
    bool exact = true; // nothing is lost in the split
    int64_t gain = 0;  // at 0 Hz, in Q
    int64_t peak = 0;  // bound of the sum in Q14 for any input

    constexpr explicit Filter(const std::array<int32_t, Taps>& c)
    {
        int64_t fine_peak = 0;
        for (int i = 0; i < Taps; ++i) {
            const int32_t v = c[size_t(i)];
            const bool large = i >= CoarseAt && i < CoarseAt + Coarse;
            const int32_t high = large ? (v + (1 << (kShift - 1))) >> kShift : 0;
            const int32_t low = v - high * (1 << kShift);
            if (large) coarse[i - CoarseAt] = int16_t(high);
            fine[i] = int16_t(low);
            exact = exact && high == int16_t(high) && low == int16_t(low);
            gain += v;
            peak += (high < 0 ? -high : high) * INT64_C(32768);
            fine_peak += (low < 0 ? -low : low) * INT64_C(32768);
        }
        exact = exact && fine_peak <= INT32_MAX;
        peak += (fine_peak >> kShift) + 1;
    }
};

// True when the filter's gain at 0 Hz is one and its sum with `more` samples and a rounding term fits 32
// bits.
template<class F> constexpr bool sound(const F& f, int more)
{
    return f.exact && f.gain == INT64_C(1) << (kOne + F::kShift) &&
           f.peak + (more * INT64_C(32768) + 1) * (1 << kOne) <= INT32_MAX;
}

// A symmetric filter from its second half: an even one from the tap next to the centre, an odd one from the
// centre.
template<size_t K> constexpr std::array<int32_t, 2 * K> even_symmetric(const std::array<int32_t, K>& half)
{
    std::array<int32_t, 2 * K> c{};
    for (size_t i = 0; i < K; ++i) c[K + i] = c[K - 1 - i] = half[i];
    return c;
}

template<size_t K> constexpr std::array<int32_t, 2 * K - 1> odd_symmetric(const std::array<int32_t, K>& half)
{
    std::array<int32_t, 2 * K - 1> c{};
    for (size_t i = 0; i < K; ++i) c[K - 1 + i] = c[K - 1 - i] = half[i];
    return c;
}

// The mirror image: the filter for the fraction 1 - f of a sample from that for f.
template<size_t N> constexpr std::array<int32_t, N> reversed(const std::array<int32_t, N>& c)
{
    std::array<int32_t, N> r{};
    for (size_t i = 0; i < N; ++i) r[i] = c[N - 1 - i];
    return r;
}

// Up: interpolators at a fraction of a sample after the centre, 0.45 of the input rate wide.
using Fraction = Filter<64, 16, 32, 20>;
inline constexpr std::array<int32_t, 64> kQuarterTaps = {
    -7,     16,    -32,    59,     -99,     158,    -241,   355,     -510,  714,    -980,  1319,   -1747,
    2281,   -2938, 3743,   -4719,  5898,    -7314,  9015,   -11057,  13521, -16513, 20197, -24818, 30783,
    -38807, 50283, -68326, 101606, -186562, 942867, 314790, -133898, 83798, -59882, 45642, -36063, 29105,
    -23785, 19574, -16157, 13341,  -10993,  9025,   -7371,  5980,    -4813, 3840,   -3031, 2365,   -1822,
    1383,   -1033, 757,    -544,   381,     -260,   171,    -108,    65,    -36,    18,    -8};
inline constexpr std::array<int32_t, 64> kThirdTaps = {
    -10,    22,    -45,    82,     -136,    216,    -327,   481,     -685,   955,    -1302, 1744,   -2298,
    2985,   -3828, 4853,   -6090,  7576,    -9353,  11476,  -14012,  17055,  -20733, 25235, -30851, 38056,
    -47680, 61330, -82549, 120970, -215174, 866862, 432568, -171113, 104798, -74001, 55932, -43895, 35218,
    -28628, 23441, -19257, 15825,  -12980,  10608,  -8624,  6964,    -5580,  4430,   -3480, 2703,   -2071,
    1564,   -1161, 847,    -604,   421,     -285,   186,    -116,    69,     -38,    19,    -9};
inline constexpr std::array<int32_t, 64> kSixthTaps = {
    -6,     13,    -25,    46,    -77,     122,     -185,   272,    -389,  542,    -741,  994,    -1312,
    1707,   -2192, 2784,   -3500, 4363,    -5396,   6635,   -8119,  9907,  -12077, 14747, -18097, 22428,
    -28272, 36675, -50013, 75057, -141821, 1000849, 199970, -89979, 57110, -41026, 31331, -24764, 19975,
    -16306, 13398, -11040, 9097,  -7479,   6126,    -4990,  4038,   -3241, 2578,   -2029, 1578,   -1211,
    916,    -682,  498,    -356,  248,     -168,    110,    -69,    41,    -23,    11,    -5};
inline constexpr Fraction kHalf(
    even_symmetric<32>({666784, -220242, 129752, -90168, 67600, -52816, 42272, -34320, 28090, -23079, 18977,
                        -15580, 12747,   -10377, 8394,   -6737, 5359,   -4219, 3284,   -2522, 1910,   -1422,
                        1040,   -745,    521,    -353,   232,   -146,   87,    -48,    24,    -11}));
inline constexpr Fraction kQuarter(kQuarterTaps);
inline constexpr Fraction kThreeQuarters(reversed(kQuarterTaps));
inline constexpr Fraction kSixth(kSixthTaps);
inline constexpr Fraction kThird(kThirdTaps);
inline constexpr Fraction kTwoThirds(reversed(kThirdTaps));
inline constexpr Fraction kFiveSixths(reversed(kSixthTaps));

// Down from 2 low to low: the taps of a half-band filter that meet odd samples; the transition is at low/2.
using Sharp = Filter<58, 13, 32, 20>;
inline constexpr Sharp
    kSharp(even_symmetric<29>({666725, -220070, 129469, -89782, 67118, -52251, 41635, -33626, 27352, -22315,
                               18198,  -14803,  11983,  -9640,  7690,  -6079,  4751,  -3667,  2789,  -2088,
                               1532,   -1102,   771,    -525,   344,   -216,   127,   -70,    38}));

// Down from 4 low to 2 low, likewise half-band.
using Short = Filter<14, 3, 8, 17>;
inline constexpr Short kShort(even_symmetric<7>({81602, -22715, 9411, -3752, 1259, -313, 44}));

// Down from 6 low to 2 low.
using By3 = Filter<37, 10, 16, 18>;
inline constexpr By3 kBy3(odd_symmetric<19>({83928, 69640, 36060, 3116, -13338, -11868, -2274, 4546, 4774,
                                             1315, -1413, -1679, -576, 326, 438, 174, -41, -64, -28}));

static_assert(sound(kHalf, 0) && sound(kQuarter, 0) && sound(kSixth, 0) && sound(kThird, 0));
static_assert(sound(kSharp, 1) && sound(kShort, 1) &&
              sound(kBy3, 0)); // half-band: the centre sample is added

// Sums of N products for kOutputs windows, Step samples apart.
template<int N, int Step> inline void products(const int16_t* c, const int16_t* x, int32_t (&sum)[kOutputs])
{
    static_assert(N % 4 == 0);
    int32_t s0 = 0;
    if constexpr (kOutputs == 1) {
        for (int i = 0; i < N; ++i) s0 += c[i] * x[i];
        sum[0] = s0;
        return;
    }
    int32_t s1 = 0, s2 = 0, s3 = 0;
    const auto tap = [&](int16_t v, int16_t x0, int16_t x1, int16_t x2, int16_t x3) {
        s0 += v * x0;
        s1 += v * x1;
        s2 += v * x2;
        s3 += v * x3;
    };
    if constexpr (Step == 1) { // each sample is loaded once and moves through the four windows
        int16_t x0 = x[0], x1 = x[1], x2 = x[2];
        for (int i = 0; i < N; i += 4) {
            const int16_t x3 = x[i + 3];
            tap(c[i], x0, x1, x2, x3);
            tap(c[i + 1], x1, x2, x3, x0 = x[i + 4]);
            tap(c[i + 2], x2, x3, x0, x1 = x[i + 5]);
            tap(c[i + 3], x3, x0, x1, x2 = x[i + 6]);
        }
    } else {
        for (int i = 0; i < N; ++i) tap(c[i], x[i], x[i + Step], x[i + 2 * Step], x[i + 3 * Step]);
    }
    const int32_t all[] = {s0, s1, s2, s3};
    for (int k = 0; k < kOutputs; ++k) sum[k] = all[k];
}

// The filter's output in Q14 for kOutputs windows, Step samples apart.
template<int Step, class F> inline void convolve(const F& f, const int16_t* x, int32_t (&sum)[kOutputs])
{
    int32_t fine[kOutputs];
    products<F::kFine, Step>(f.fine, x, fine);
    products<F::kCoarse, Step>(f.coarse, x + F::kCoarseAt, sum);
    for (int k = 0; k < kOutputs; ++k) sum[k] += fine[k] >> F::kShift;
}

} // namespace zep::resampler
#endif
