// The echo canceller's residual suppressor.
//
// A block passes through four estimates a bin: the residual echo (the filter's own error and the loudspeaker's
// distortion), the near talker's presence, the room's noise, and the gain that these leave. The gains then shape one
// short filter in the time domain. Multiplying the spectrum itself would cost a block of delay for the overlap, and
// the filter is faded from block to block, so that a gain's step does not click.
//
// Numbers beside a constant are what another value does to the cases of bench/dsp/signals/mk_aec.py at 8 kHz.
#include "mpi/audio/dsp/aec_suppressor.hpp"

#include "mpi/audio/dsp/fixed_point.hpp"
#include "mpi/audio/dsp/aec_shape.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace zep {
namespace {

constexpr int32_t kOne = 32768; // Q15
// Q15, -30 dB. -40 dB: 1 to 3 dB more in the first second of a room, nothing later.
constexpr int32_t kLeastGain = 983;
constexpr int32_t kOpenGain =
    32735; // Q15, 0.999: a filter that would change less than a step of 16 bits is left out
// Q8: the residual is taken for 4 times the expected power while the far talker is alone, where the price of too much
// is nothing, and for 0.3 times under the near talker, where the signal is that voice. 2 times alone: 30 instead of 35 dB a
// second after a jump of the delay. 0.6 under the near talker: level -0.15 -> -0.24 dB, STOI .992 -> .990.
constexpr int32_t kAlone = 1024;
constexpr int32_t kTogether = 77;
constexpr int kNoiseWindow =
    50;                   // blocks of 10 ms, for the least power: half a second holds a pause between words
constexpr int kFade = 40; // samples from one filter to the next, 5 ms at 8 kHz: a step of 30 dB would click
constexpr int64_t kAudible = 1 << 24; // power of the echo in a bin, Q8: below it the proportion is noise
// Proportion of distortion to echo, Q20: -36 dB before anything is known, as a fair loudspeaker has; at most -12 dB;
// a higher limit alone did nothing for clipping.
constexpr int32_t kFirstDistortion = 256;
constexpr int32_t kMostDistortion = 1 << 16;
// Of what is usual to the least, which is tracked: 9 dB. 16: near talker's STOI .992 -> .989.
constexpr int kDistortionScale = 8;
constexpr int64_t kNone = INT64_MAX;

// sin(pi i / 640): the root of a Hann window for both sizes.
constexpr auto make_window()
{
    std::array<int16_t, 641> t{};
    for (int i = 0; i <= 640; ++i) {
        double a = kPi * (i <= 320 ? i : 640 - i) / 640;
        t[size_t(i)] = int16_t(sin_series(a) * 32767 + 0.5);
    }
    return t;
}

constexpr auto kWindow = make_window();

void analyse(AecSuppressor& s, const int32_t* error, int64_t* power)
{
    int32_t frame[kAecMaxSize];
    Complex spectrum[kAecMaxBins];
    const int step = 320 / s.block;
    for (int i = 0; i < 2 * s.block; ++i) {
        int32_t v = i < s.block ? s.last[i] : error[i - s.block];
        frame[i] = int32_t(int64_t(v) * kWindow[size_t(step * i + step / 2)] >> 15);
    }
    memcpy(s.last, error, size_t(s.block) * sizeof *error);
    aec_fft(s.block).forward(frame, spectrum);
    for (int k = 0; k < s.bins; ++k) power[k] = square(spectrum[k].re) + square(spectrum[k].im);
}

// Power of what a linear filter cannot take away, as the loudspeaker distorts: in proportion to the echo.
// The proportion is the lowest in a while, so the near talker's pauses show it.
int64_t distorted(AecSuppressor& s, int k, int64_t power, int64_t taken)
{
    s.smooth[k] += (power - s.smooth[k]) >> 1;
    s.echo_smooth[k] += (taken - s.echo_smooth[k]) >> 1;
    int32_t& q20 = s.distortion_q20[k];
    if (s.echo_smooth[k] > kAudible) {
        // Down by 1/32 a block, up by 1/256: near the least of the last two seconds.
        bool below = s.smooth[k] < (s.echo_smooth[k] >> 20) * q20;
        q20 = below ? q20 - (q20 >> 5) : std::min(q20 + (q20 >> 8) + 1, kMostDistortion);
    }
    return (s.echo_smooth[k] >> 20) * q20 * kDistortionScale;
}

// Rises at once, falls in about ten blocks.
void find_near(AecSuppressor& s, const int64_t* power, const int64_t* echo)
{
    int64_t heard = 0, expected = 256;
    for (int k = 2; k < s.bins; ++k) {
        heard += std::max<int64_t>(power[k] - s.noise[k], 0);
        expected += echo[k];
    }
    // None up to twice the expected power, surely from eight times on.
    int64_t q12 = ratio(heard, expected, 12, 1 << 20);
    int32_t now = int32_t(std::clamp<int64_t>((q12 - 8192) * 4 / 3, 0, kOne));
    s.near_q15 = std::max(now, s.near_q15 + (now - s.near_q15) / 10);
}

// Least power in the last one to two windows, bin by bin, where it is not echo: minimum statistics (Martin 2001) in two
// windows, which needs two values a bin in place of a history. The least of a noise lies below its mean; 1.5 makes
// that good, and 3 times the present power holds it down when the noise ends.
void track_noise(AecSuppressor& s, const int64_t* echo)
{
    bool roll = ++s.count == kNoiseWindow;
    if (roll) s.count = 0;
    for (int k = 0; k < s.bins; ++k) {
        if (echo[k] < s.smooth[k] / 4) s.least[0][k] = std::min(s.least[0][k], s.smooth[k]);
        s.noise[k] = std::min(s.noise[k], 3 * s.smooth[k]);
        if (!roll) continue;
        int64_t least = std::min(s.least[0][k], s.least[1][k]);
        if (least != kNone) s.noise[k] = least + least / 2;
        s.least[1][k] = s.least[0][k];
        s.least[0][k] = kNone;
    }
}

// Half of the room's noise stays, so that the far talker's words do not cut holes into it.
int32_t floor_gain(int32_t gain, int64_t power, int64_t noise)
{
    int64_t kept = noise / 4;
    if ((int64_t(gain) * gain >> 15) * (power >> 15) < kept) {
        gain = std::max(gain, int32_t(root(uint64_t(ratio(kept, power + 1, 30, 1 << 30)))));
    }
    return std::max(gain, kLeastGain);
}

// The Wiener gain prior / (prior + 1) of the ratio of near to residual power. The ratio is estimated decision-directed:
// 0.6 of what the last gain let through, 0.4 of what this block has above its echo. The 0.98 that is usual against
// noise would hold back the beginning of a word for many blocks of 10 ms.
void set_gain(AecSuppressor& s, int k, int64_t power, int64_t echo)
{
    int64_t now = ratio(power + 256, echo + 256, 12, 1 << 24);
    int64_t before = int64_t(s.gain_q15[k]) * s.gain_q15[k] * s.ratio_q12[k] >> 30;
    int64_t prior = (before * 6 + std::max<int64_t>(now - 4096, 0) * 4) / 10;
    s.ratio_q12[k] = int32_t(now);
    int32_t gain = kOne - int32_t((1 << 27) / uint32_t(prior + 4096));
    s.gain_q15[k] = echo == 0 || now > 1000 * 4096 ? kOne : floor_gain(gain, power, s.noise[k]);
}

// `taps` in reverse, `x` at the oldest sample.
int32_t convolve(const int16_t* taps, const int16_t* x)
{
    int32_t sum = 1 << 13;
    for (int j = 0; j < kAecTaps; ++j) sum += taps[j] * x[j];
    return sum >> 14;
}

// The first kFade samples go from the last block's filter to this one's, both run side by side.
void filter(AecSuppressor& s, const int16_t* taps, int16_t* out)
{
    for (int i = 0; i < s.block; ++i) {
        const int16_t* x = s.history + i + 1;
        int32_t v = convolve(taps, x);
        if (i < kFade) v = (v * (i + 1) + convolve(s.taps, x) * (kFade - i)) / (kFade + 1);
        out[i] = saturate(v);
    }
}

} // namespace

void aec_suppressor_init(AecSuppressor& s, int block)
{
    memset(&s, 0, sizeof s);
    s.block = block;
    s.bins = block + 1;
    s.open = true;
    s.taps[kAecTaps - 1] = 1 << 14;
    std::fill_n(s.distortion_q20, kAecMaxBins, kFirstDistortion);
    std::fill_n(s.gain_q15, kAecMaxBins, kOne);
    std::fill_n(s.least[0], 2 * kAecMaxBins, kNone);
}

void aec_suppressor_run(AecSuppressor& s, const int32_t* error, const int64_t* residual, const int64_t* taken,
                        int16_t* out)
{
    int64_t power[kAecMaxBins], echo[kAecMaxBins];
    analyse(s, error, power);
    for (int k = 0; k < s.bins; ++k) echo[k] = std::max(residual[k], distorted(s, k, power[k], taken[k]));
    find_near(s, power, echo);
    track_noise(s, echo);
    int32_t scale_q8 = kAlone + int32_t(int64_t(kTogether - kAlone) * s.near_q15 >> 15);
    for (int k = 0; k < s.bins; ++k) set_gain(s, k, power[k], (echo[k] >> 8) * scale_q8);

    memmove(s.history, s.history + s.block, kAecTaps * sizeof s.history[0]);
    for (int i = 0; i < s.block; ++i) s.history[kAecTaps + i] = saturate((error[i] + 8) >> 4);
    bool open = *std::min_element(s.gain_q15, s.gain_q15 + s.bins) >= kOpenGain;
    if (open && s.open) {
        memcpy(out, s.history + kAecTaps, size_t(s.block) * sizeof *out);
        return;
    }
    int16_t taps[kAecTaps] = {1 << 14};
    if (!open) aec_shape(s.block, s.gain_q15, taps, kAecTaps);
    std::reverse(taps, taps + kAecTaps);
    filter(s, taps, out);
    memcpy(s.taps, taps, sizeof s.taps);
    s.open = open;
}

} // namespace zep
