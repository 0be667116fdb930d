// Filters of the fixed-ratio resamplers, and the sum of products they share.
//
// 16-bit coefficients are too coarse for images 97 dB down and 32-bit ones too slow for a processor that
// multiplies 16 by 16 bits. So a coefficient of Q bits is split: the few large ones in the middle have a
// coarse part in Q14, and a fine row in Q holds what is left of them and the small ones whole. Both sums fit
// 32 bits for any input, which is checked here at compile time.
//
// The numbers come from bench/dsp/design_rs.py.
#pragma once

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
    -9,     20,    -39,    69,     -115,    182,    -275,   402,     -572,  795,    -1083, 1448,   -1906,
    2473,   -3169, 4015,   -5036,  6262,    -7728,  9480,   -11575,  14092, -17137, 20871, -25540, 31549,
    -39613, 51123, -69195, 102497, -187468, 943780, 313878, -132993, 82909, -59015, 44805, -35260, 28343,
    -23068, 18905, -15539, 12775,  -10481,  8565,   -6962,  5621,    -4502, 3572,   -2805, 2177,   -1666,
    1257,   -932,  679,    -483,   336,     -227,   148,    -92,     55,    -30,    15,    -7};
inline constexpr std::array<int32_t, 64> kThirdTaps = {
    -11,    23,    -46,    82,     -136,    215,    -326,   478,     -681,   949,    -1293, 1732,   -2283,
    2965,   -3803, 4823,   -6054,  7532,    -9302,  11416,  -13944,  16979,  -20648, 25142, -30749, 37946,
    -47563, 61208, -82421, 120839, -215040, 866726, 432705, -171248, 104931, -74131, 56057, -44013, 35330,
    -28733, 23538, -19345, 15905,  -13052,  10671,  -8678,  7011,    -5619,  4463,   -3507, 2724,   -2088,
    1577,   -1171, 854,    -609,   424,     -287,   187,    -117,    69,     -37,    19,    -9};
inline constexpr std::array<int32_t, 64> kSixthTaps = {
    -7,     15,    -29,    51,    -84,     133,     -201,   293,    -416,  577,    -785,  1048,   -1378,
    1787,   -2286, 2894,   -3627, 4507,    -5560,   6817,   -8321,  10128, -12317, 15005, -18373, 22719,
    -28577, 36992, -50339, 75391, -142159, 1001189, 199630, -89643, 56780, -40705, 31021, -24467, 19693,
    -16040, 13150, -10810, 8886,  -7288,   5954,    -4837,  3903,   -3124, 2477,   -1943, 1506,   -1151,
    868,    -642,  467,    -332,  230,     -155,    101,    -63,    37,    -20,    10,    -4};
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

// Down from 2 low to low after another stage: the taps of a half-band filter that meet odd samples. Alone,
// down by 2 has time for the longer kHalf.
using Sharp = Filter<60, 14, 32, 20>;
inline constexpr Sharp
    kSharp(even_symmetric<30>({666750, -220141, 129587, -89942, 67319, -52485, 41899, -33913, 27658, -22629,
                               18520,  -15122,  12297,  -9941,  7978,  -6346,  4998,  -3889,  2988,  -2261,
                               1683,   -1227,   877,    -609,   412,   -267,   166,   -97,    52,    -27}));

// Down from 4 low to 2 low, likewise half-band.
using Short = Filter<14, 3, 8, 17>;
inline constexpr Short kShort(even_symmetric<7>({81602, -22715, 9411, -3752, 1259, -313, 44}));

// Down from 6 low to 2 low.
using By3 = Filter<37, 10, 16, 18>;
inline constexpr By3 kBy3(odd_symmetric<19>({83928, 69640, 36060, 3116, -13338, -11868, -2274, 4546, 4774,
                                             1315, -1413, -1679, -576, 326, 438, 174, -41, -64, -28}));

static_assert(sound(kQuarter, 0) && sound(kSixth, 0) && sound(kThird, 0) && sound(kBy3, 0));
static_assert(sound(kHalf, 1) && sound(kSharp, 1) &&
              sound(kShort, 1)); // half-band: the centre sample is added

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
        for (const int16_t* end = c + N; c != end; ++c, ++x) tap(*c, x[0], x[Step], x[2 * Step], x[3 * Step]);
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
