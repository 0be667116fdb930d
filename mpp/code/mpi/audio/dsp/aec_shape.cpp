// Minimum-phase filter from gains, through the real cepstrum.
#include "mpi/audio/dsp/aec_shape.hpp"

#include "mpi/audio/dsp/aec_fft.hpp"
#include "mpi/audio/dsp/aec_math.hpp"

#include <algorithm>
#include <array>

namespace zep {
namespace {

constexpr int kLogShift = 24;
constexpr double kLn2 = 0.69314718055994530942;
constexpr int64_t kLn2Q16 = 45426;
constexpr int kMostTaps = 48;

// log2(1 + i / 32), Q24: ln((1 + z) / (1 - z)) = 2 (z + z^3 / 3 + ...).
constexpr auto make_logs()
{
    std::array<int32_t, 33> t{};
    for (int i = 0; i <= 32; ++i) {
        double z = i / (64.0 + i), power = z, sum = 0;
        for (int j = 1; j < 60; j += 2) {
            sum += power / j;
            power *= z * z;
        }
        t[size_t(i)] = int32_t(2 * sum / kLn2 * (1 << kLogShift) + 0.5);
    }
    return t;
}

// 2^(i / 32), Q24.
constexpr auto make_powers()
{
    std::array<int32_t, 33> t{};
    for (int i = 0; i <= 32; ++i) {
        double a = i * kLn2 / 32, term = 1, sum = 0;
        for (int j = 1; j < 30; ++j) {
            sum += term;
            term *= a / j;
        }
        t[size_t(i)] = int32_t(sum * (1 << kLogShift) + 0.5);
    }
    return t;
}

constexpr auto kLogs = make_logs();
constexpr auto kPowers = make_powers();

int32_t between(const std::array<int32_t, 33>& t, uint32_t at_q24)
{
    size_t i = at_q24 >> 19;
    int64_t rest = at_q24 & ((1 << 19) - 1);
    return t[i] + int32_t((t[i + 1] - t[i]) * rest >> 19);
}

// log2 of a Q15 gain, Q24, at most 0.
int32_t log_of(int32_t gain_q15)
{
    int places = bits_of(uint64_t(gain_q15)) - 1;
    uint32_t mantissa = uint32_t(gain_q15) << (kLogShift - places);
    return between(kLogs, mantissa - (1u << kLogShift)) + (places - 15) * (1 << kLogShift);
}

// 2^v, Q24, for v of at most 0.
int32_t power_of_two(int32_t v_q24)
{
    int whole = v_q24 >> kLogShift;
    int32_t mantissa = between(kPowers, uint32_t(v_q24 - whole * (1 << kLogShift)));
    return whole < -30 ? 0 : mantissa >> -whole;
}

void to_taps(const int32_t* h, int16_t* taps, int count)
{
    int32_t sum = 0;
    for (int n = 0; n < count; ++n) {
        taps[n] = to_sample((h[n] + 512) >> 10);
        sum += std::abs(int32_t(taps[n]));
    }
    if (sum < 65536) return;
    for (int n = 0; n < count; ++n) taps[n] = int16_t(int64_t(taps[n]) * 65535 / sum);
}

} // namespace

void aec_shape(int block, const int32_t* gain_q15, int16_t* taps, int count)
{
    AecComplex log[kAecMaxBins];
    int32_t cepstrum[kAecMaxSize];
    for (int k = 0; k <= block; ++k) log[k] = {log_of(gain_q15[k]), 0};
    aec_fft_inverse(2 * block, log, cepstrum);

    // Of h = exp(c), with the cepstrum folded onto positive times: n h[n] = sum of k c[k] h[n - k].
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
