// The echo canceller's adaptive filter.
//
// One step for each bin k and partition p, with far spectrum X, error spectrum E and variance P of the weight's error:
//
//   S    = sum over p of P |X|^2        power of the residual echo as the filter expects it
//   gain = P conj(X) / (S + 2 N)        N: power in the error that no filter can learn: near talker, noise
//   W   += gain E
//   P   -= P gain X / 2                 what was learnt; half, since half of the transform's frame is new
//   P   += (|W|^2 - P) forget           the echo path drifts
//
// This is a Kalman filter in the frequency domain (Enzner and Vary 2006) with the echo path cut into partitions of a
// block each: a transform of two blocks, overlap-save, in place of one as long as the path, so that 128 ms of path cost
// 10 ms of delay. The step is large while P is, and small under a near talker, without a detector of double talk. A far spectrum is
// transformed once and stays in the ring for all partitions. Numbers in dB or STOI beside a constant are what another
// value does to the cases of bench/dsp/signals/mk_aec.py at 8 kHz.
#include "mpi/audio/dsp/aec_filter.hpp"

#include "mpi/audio/dsp/aec_step.hpp"
#include "mpi/audio/dsp/fixed_point.hpp"

#include <algorithm>
#include <cstring>

namespace zep {
namespace {

constexpr int kVarianceShift = 33;
// Bits of a far power when it meets a variance: 31 bits of that and a sum over 26 partitions make 62.
constexpr int kPowerBits = 26;
// As a weight, Q22, it is 32.0, an echo 30 dB louder than its source.
constexpr int32_t kMostSpectrum = kAecMostSpectrum;
// Twice full scale, Q4: an echo estimate of opposite sign may add to the microphone's.
constexpr int32_t kMostError = 1 << 20;
// Least power that is divided by, Q8: white noise of 1.6 quantisation steps in a block of 80. Below it the step would
// be as large as for a loud signal, and the filter would learn the converter's rounding.
constexpr int64_t kQuietest = 200 * 256;
// Q33, 0.25: an echo as loud as its source is expected, spread over the partitions by prior[].
constexpr int32_t kFirstVariance = INT32_MAX;
// Share of the difference between |W|^2 and P that a block of 10 ms adds to P, Q20: 0.0002, 2 % a second. Half of it:
// music at 3 s 36 -> 30 dB. Twice: the near talker's level -0.15 -> -0.21 dB, STOI .992 -> .988.
constexpr int32_t kForget = 210;
// Q15, 0.1: coherence of the error with the echo estimate that a near talker does not reach.
constexpr int32_t kEcho = 3277;
// Partitions whose circular half is cleared in a block. The exact algorithm clears all of them each time, with two
// transforms each: 26 instead of 2 for a path of 128 ms.
constexpr int kTrims = 1;

struct Estimate {
    Complex echo[kAecMaxBins];
    int64_t uncertainty[kAecMaxBins]; // S: variance times far power, over all partitions
    int8_t far_bits[kAecMaxBins];     // of the largest far power in the bin
    int8_t far_shift[kAecMaxBins];    // brings far powers into kPowerBits
};

const Complex* far_of(const AecFilter& f, int age)
{
    int at = f.head + age;
    return f.far + (at < f.ring ? at : at - f.ring) * f.bins;
}

const int64_t* power_of(const AecFilter& f, int age) { return f.far_power + (far_of(f, age) - f.far); }

void take_far(AecFilter& f, const int16_t* far)
{
    f.head = f.head ? f.head - 1 : f.ring - 1;
    memmove(f.far_frame, f.far_frame + f.block, size_t(f.block) * sizeof f.far_frame[0]);
    f.any_beyond[f.head] = aec_limit_far(f.limit, f.block, far, f.far_frame + f.block);
    if (f.any_beyond[f.head]) aec_fft(f.block).forward(f.limit.signs, f.beyond + f.head * f.bins);
    Complex* x = f.far + f.head * f.bins;
    aec_fft(f.block).forward(f.far_frame, x);
    for (int k = 0; k < f.bins; ++k) f.far_power[f.head * f.bins + k] = square(x[k].re) + square(x[k].im);
}

const int16_t* near_of(const AecFilter& f, int age)
{
    return f.near_ring + (f.near_head + age) % (kAecHistory + 1) * kAecMaxBlock;
}

void take_near(AecFilter& f, const int16_t* near)
{
    f.near_head = f.near_head ? f.near_head - 1 : kAecHistory;
    memcpy(f.near_ring + f.near_head * kAecMaxBlock, near, size_t(f.block) * sizeof *near);
}

// The echo as the filter has it, `age` blocks ago, and how wrong it may be.
void estimate(const AecFilter& f, int age, Estimate& to)
{
    int64_t re[kAecMaxBins] = {}, im[kAecMaxBins] = {}, sum[kAecMaxBins] = {}, top[kAecMaxBins] = {};
    for (int p = 0; p < f.parts; ++p) {
        const int64_t* power = power_of(f, age + p);
        for (int k = 0; k < f.bins; ++k) top[k] |= power[k];
    }
    for (int k = 0; k < f.bins; ++k) {
        to.far_bits[k] = int8_t(bits_of(uint64_t(top[k])));
        to.far_shift[k] = int8_t(std::max(0, to.far_bits[k] - kPowerBits));
    }
    for (int p = 0; p < f.parts; ++p) {
        const Complex* x = far_of(f, age + p);
        const int64_t* power = power_of(f, age + p);
        const Complex* w = f.weight + p * f.bins;
        const int32_t* v = f.variance + p * f.bins;
        for (int k = 0; k < f.bins; ++k) {
            re[k] += int64_t(w[k].re) * x[k].re - int64_t(w[k].im) * x[k].im;
            im[k] += int64_t(w[k].re) * x[k].im + int64_t(w[k].im) * x[k].re;
            sum[k] += int64_t(v[k]) * int32_t(power[k] >> to.far_shift[k]);
        }
    }
    constexpr int64_t kHalf = int64_t(1) << (kAecWeightShift - 1);
    for (int k = 0; k < f.bins; ++k) {
        to.echo[k] = {clamp_to((re[k] + kHalf) >> kAecWeightShift, kMostSpectrum),
                      clamp_to((im[k] + kHalf) >> kAecWeightShift, kMostSpectrum)};
        to.uncertainty[k] = sum[k] >> (kVarianceShift - to.far_shift[k]);
    }
}

// error = near - echo over one block, and its spectrum behind a block of zeros.
void subtract(const AecFilter& f, const Estimate& of, const int16_t* near, int32_t* error, Complex* spectrum)
{
    int32_t frame[kAecMaxSize];
    aec_fft(f.block).inverse(of.echo, frame);
    for (int i = 0; i < f.block; ++i) {
        error[i] = clamp_to(near[i] * (1 << kAecSampleShift) - frame[f.block + i], kMostError);
    }
    memset(frame, 0, size_t(f.block) * sizeof frame[0]);
    memcpy(frame + f.block, error, size_t(f.block) * sizeof frame[0]);
    aec_fft(f.block).forward(frame, spectrum);
}

// N follows the error within two blocks, as fast as a near talker begins to speak, and is smoothed over three bins, as
// one bin of one block says little. It holds the residual echo too: the step then is too small rather than too large.
void track_noise(AecFilter& f, const Complex* error)
{
    int64_t power[kAecMaxBins];
    for (int k = 0; k < f.bins; ++k) power[k] = square(error[k].re) + square(error[k].im);
    for (int k = 0; k < f.bins; ++k) {
        int64_t below = power[k ? k - 1 : 0];
        int64_t above = power[k + 1 < f.bins ? k + 1 : k];
        f.noise[k] += (((below + 2 * power[k] + above) >> 2) - f.noise[k]) >> 1;
    }
}

void set_steps(const AecFilter& f, const Estimate& from, const Complex* error, AecStep* steps)
{
    for (int k = 0; k < f.bins; ++k) {
        const uint64_t power = uint64_t(from.uncertainty[k] + 2 * f.noise[k] + kQuietest);
        steps[k] = aec_step(error[k], power, from.far_bits[k], from.far_shift[k]);
    }
}

void move_weight(Complex& w, int32_t variance, Complex x, const AecStep& s)
{
    int64_t re = (int64_t(x.re) * s.re + int64_t(x.im) * s.im) >> s.product_shift;
    int64_t im = (int64_t(x.re) * s.im - int64_t(x.im) * s.re) >> s.product_shift;
    int64_t half = int64_t(1) << (s.weight_shift - 1);
    w.re = clamp_to(w.re + ((variance * re + half) >> s.weight_shift), kMostSpectrum);
    w.im = clamp_to(w.im + ((variance * im + half) >> s.weight_shift), kMostSpectrum);
}

void adapt(AecFilter& f, int age, const AecStep* steps, bool settle)
{
    for (int p = 0; p < f.parts; ++p) {
        const Complex* x = far_of(f, age + p);
        Complex* w = f.weight + p * f.bins;
        int32_t* v = f.variance + p * f.bins;
        for (int k = 0; k < f.bins; ++k) move_weight(w[k], v[k], x[k], steps[k]);
        if (!settle) continue;
        // What was learnt is taken off the variance: half of it, as half of the frame is new.
        const int64_t* power = power_of(f, age + p);
        for (int k = 0; k < f.bins; ++k) {
            int64_t part = int64_t(v[k]) * int32_t(power[k] >> steps[k].far_shift) >> 27;
            int64_t share = std::min<int64_t>(part * steps[k].inverse >> steps[k].variance_shift, INT32_MAX);
            v[k] -= int32_t(v[k] * share >> 32);
        }
    }
}

// Half of a partition's taps belong to a circle that a linear echo path does not have.
void trim(AecFilter& f, int p)
{
    Complex* w = f.weight + p * f.bins;
    int32_t taps[kAecMaxSize];
    aec_fft(f.block).inverse(w, taps);
    memset(taps + f.block, 0, size_t(f.block) * sizeof taps[0]);
    int64_t sum = 0;
    for (int i = 0; i < f.block; ++i) sum += std::abs(int64_t(taps[i]));
    int down = std::max(0, bits_of(uint64_t(sum)) - 27);
    for (int i = 0; i < f.block; ++i) taps[i] >>= down;
    aec_fft(f.block).forward(taps, w);
}

// The echo path drifts: its variance grows in proportion to its power.
// It does so for the trimmed partition only, hence forget_q20 holds the blocks of a whole turn.
void let_drift(AecFilter& f, int p)
{
    const int64_t forget_q20 = int64_t(f.forget_q20) * aec_watch_drift_q4(f.watch, f.block) >> 4;
    f.strength[p] = 0;
    for (int i = p * f.bins; i < (p + 1) * f.bins; ++i) {
        int64_t power =
            (square(f.weight[i].re) + square(f.weight[i].im)) >> (2 * kAecWeightShift - kVarianceShift);
        f.strength[p] += power >> 8;
        int64_t v = f.variance[i] + (((power - f.variance[i]) * forget_q20) >> 20);
        f.variance[i] = int32_t(std::min<int64_t>(v, INT32_MAX));
    }
}

// The variances go back to at least the first ones, divided by 2^shift.
void raise_variances(AecFilter& f, int shift)
{
    for (int i = 0; i < f.parts * f.bins; ++i) {
        f.variance[i] = std::max(f.variance[i], f.prior[i / f.bins] >> shift);
    }
}

// A filter that has failed before is trusted with less: the loudspeaker may not be heard at all.
void restart(AecFilter& f)
{
    memset(f.weight, 0, sizeof f.weight);
    memset(f.noise, 0, sizeof f.noise);
    memset(f.variance, 0, sizeof f.variance);
    raise_variances(f, 2 * (f.watch.failures - 1));
}

// Half of each weight is kept, so that one wrong verdict does not lose the room.
void shrink(AecFilter& f)
{
    for (int i = 0; i < f.parts * f.bins; ++i) {
        f.weight[i] = {f.weight[i].re / 2, f.weight[i].im / 2};
        f.variance[i] /= 4;
    }
}

// The limit learns from the strongest partition and those after it: they hold most of the echo, and all would cost as
// much as the echo itself.
void find_limit(AecFilter& f, const Estimate& now, const AecStep* steps)
{
    int64_t re[kAecMaxBins] = {}, im[kAecMaxBins] = {};
    const int first = int(std::max_element(f.strength, f.strength + f.parts) - f.strength);
    bool any = false;
    for (int p = first; p < std::min(first + kAecLimitParts, f.parts); ++p) {
        const int at = (f.head + p) % f.ring;
        if (!f.any_beyond[at]) continue;
        any = true;
        aec_limit_hear(f.weight + p * f.bins, f.beyond + at * f.bins, f.bins, re, im);
    }
    // A filter that takes away less than 1.2 dB has not learnt yet what the limit would change.
    const bool settled = f.watch.recent.error < f.watch.recent.near / 4 * 3;
    const bool useless = f.watch.recent.error > f.watch.recent.near / 32 && f.watch.coherence_q15 > kEcho;
    if (any) aec_limit_learn(f.limit, aec_limit_sums(re, im, now.echo, steps, f.bins), settled, useless);
}

AecVerdict judge(AecFilter& f, const Estimate& now, const int16_t* near, const Complex* error)
{
    AecEnergies energy = {};
    for (int i = 0; i < f.block; ++i) {
        int32_t d = near[i] * (1 << kAecSampleShift);
        energy.near += square(d);
        energy.error += square(f.error[i]);
        energy.echo += square(d - f.error[i]);
    }
    for (int k = 0; k < f.bins; ++k) energy.expected += now.uncertainty[k] >> 1;
    return aec_watch_run(f.watch, f.bins, energy, error, now.echo);
}

// Learns from blocks of 40 and 80 ms ago once more with the weights of now, for a filter that has just started:
// without it 44 -> 21 dB after one second, 40 -> 23 dB a second after a change of rooms. The variances have had their
// share from these blocks and stay.
void replay(AecFilter& f)
{
    for (int j = 1; j <= kAecReplays; ++j) {
        Estimate then;
        int32_t error[kAecMaxBlock];
        Complex spectrum[kAecMaxBins];
        AecStep steps[kAecMaxBins];
        estimate(f, j * kAecReplayStep, then);
        subtract(f, then, near_of(f, j * kAecReplayStep), error, spectrum);
        set_steps(f, then, spectrum, steps);
        adapt(f, j * kAecReplayStep, steps, false);
    }
}

void pass_through(AecFilter& f, const int16_t* near)
{
    for (int i = 0; i < f.block; ++i) f.error[i] = near[i] * (1 << kAecSampleShift);
    memset(f.residual, 0, sizeof f.residual);
    memset(f.echo, 0, sizeof f.echo);
}

bool any_sound(const int16_t* far, int n)
{
    return std::any_of(far, far + n, [](int16_t v) { return v != 0; });
}

void learn(AecFilter& f, const Estimate& now, const Complex* error)
{
    track_noise(f, error);
    AecStep steps[kAecMaxBins];
    set_steps(f, now, error, steps);
    find_limit(f, now, steps);
    adapt(f, 0, steps, true);
    // Right after a change the earlier blocks are from another room.
    if (f.watch.since > kAecHistory && aec_watch_learning(f.watch, f.block)) replay(f);
    for (int i = 0; i < kTrims; ++i) {
        trim(f, f.turn);
        let_drift(f, f.turn);
        f.turn = (f.turn + 1) % f.parts;
    }
}

} // namespace

void aec_filter_init(AecFilter& f, int block, int parts, bool short_blocks)
{
    memset(&f, 0, sizeof f);
    aec_limit_init(f.limit);
    f.block = block;
    f.bins = block + 1;
    f.parts = parts;
    f.ring = parts + kAecHistory;
    f.silent = parts + 1;
    f.forget_q20 = (short_blocks ? kForget / 2 : kForget) * parts;
    // Rooms fade by some 12 dB in 100 ms at least; a partition is 10 ms, or 5.
    int64_t v = kFirstVariance;
    for (int p = 0; p < parts; ++p) {
        f.prior[p] = int32_t(v);
        v = v * (short_blocks ? 28378 : 24576) >> 15; // 0.75 a block of 10 ms, its root for 5 ms
    }
    raise_variances(f, 0);
}

void aec_filter_run(AecFilter& f, const int16_t* near, const int16_t* far)
{
    f.silent = any_sound(far, f.block) ? 0 : f.silent + 1;
    if (f.silent > f.parts + 1) {
        f.silent = f.parts + 2;
        pass_through(f, near);
        return;
    }
    take_far(f, far);
    take_near(f, near);
    Estimate now;
    Complex error[kAecMaxBins];
    estimate(f, 0, now);
    subtract(f, now, near, f.error, error);
    for (int k = 0; k < f.bins; ++k) {
        f.residual[k] = now.uncertainty[k] >> 1; // the transform spans two blocks, the error one
        f.echo[k] = (square(now.echo[k].re) + square(now.echo[k].im)) >> 1;
    }
    AecVerdict verdict = judge(f, now, near, error);
    if (verdict == AecVerdict::restart) {
        restart(f);
        pass_through(f, near);
        return;
    }
    // A quarter of the first variance: with an eighth, 31 instead of 40 dB a second after a change of rooms; with a half,
    // a clipping loudspeaker, which gives rise to verdicts all the time, is cancelled by 3 instead of 8 dB.
    if (verdict == AecVerdict::relearn) raise_variances(f, 2);
    if (verdict == AecVerdict::shrink) shrink(f);
    learn(f, now, error);
}

} // namespace zep
