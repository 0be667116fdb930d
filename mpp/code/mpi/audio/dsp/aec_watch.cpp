// The echo canceller's judgement of its filter.
//
// Numbers beside a constant are what another value does to the cases of bench/dsp/signals/mk_aec.py at 8 kHz.
#include "mpi/audio/dsp/aec_watch.hpp"

#include "mpi/audio/dsp/fixed_point.hpp"

#include <algorithm>

namespace zep {
namespace {

// Energy of a block, Q8 of 16-bit steps: an r.m.s. of 35 in 80 points, about -60 dBov. Quieter blocks prove nothing.
constexpr int64_t kAudible = 100000 * 256;
// Blocks after a verdict without another: the filter needs them to show what it has learnt. Twice as many: the near
// talker's STOI beside a loudspeaker cut off 22 dB below its peak falls from .914 to .887.
constexpr int kHoldOff = 20;
// Coherence of error and echo, Q15, 0.3, above which the error is echo. In the cases of double talk it stays below
// 0.1. 0.2 instead: another room is learnt 28 dB worse after a second.
constexpr int32_t kAlike = 9830;
// Blocks for which it must stay there. Twice as many: the new room 29 dB, a clipping loudspeaker 3 to 6 dB worse.
// A sum of the coherence above 0.15, which a change that raises it little would reach sooner: one new room is learnt
// 24 dB better after a second, a jump of the delay 2 to 14 dB worse, a near talker at 16 kHz too (STOI .985 -> .954).
constexpr int kAlikeRun = 25;
constexpr int32_t kDriftMore = 9 * 16; // Q4: see aec_watch_drift_q4()
constexpr int32_t kDriftFrom = 1500;   // Q15 coherence: 0.05, more than a near talker and the far one have
constexpr int32_t kDriftFull = 8000;   // and 0.24
constexpr int kMostFailures = 4; // each restart after the first quarters the first variance: 18 dB in the end
constexpr int64_t kMostPower = 1 << 26; // 2 * 161 squares of it make 61 bits

void smooth(AecEnergies& mean, const AecEnergies& now, int blocks)
{
    mean.near += (now.near - mean.near) / blocks;
    mean.error += (now.error - mean.error) / blocks;
    mean.echo += (now.echo - mean.echo) / blocks;
    mean.expected += (now.expected - mean.expected) / blocks;
}

// Follows a cross or own power over some 16 blocks; its square must fit with others into a sum.
int64_t follow(int64_t& mean, int64_t now)
{
    mean += ((now >> 24) - mean) / 16;
    return clamp_to(mean, kMostPower);
}

// Q15 coherence of the error with the echo that was taken away.
int32_t coherence(AecWatch& w, int bins, const Complex* error, const Complex* echo)
{
    int64_t both = 0, own = 0;
    for (int k = 1; k < bins; ++k) {
        Complex e = error[k], y = echo[k];
        both += square(follow(w.cross_re[k], int64_t(e.re) * y.re + int64_t(e.im) * y.im));
        both += square(follow(w.cross_im[k], int64_t(e.im) * y.re - int64_t(e.re) * y.im));
        own += follow(w.error_power[k], square(e.re) + square(e.im)) *
               follow(w.echo_power[k], square(y.re) + square(y.im));
    }
    return int32_t(ratio(both, own + 1, 15, 32768));
}

// restart: error above the microphone by an eighth of the echo, so the filter adds; the echo it makes is at least half
// of what is heard. relearn: coherent for a quarter of a second, less than 9 dB taken away, and at least 6 dB more left
// than expected. shrink: for more than a second the
// filter has made it worse, with an echo of its own above -12 dB of the microphone.
AecVerdict verdict(const AecWatch& w, int block, bool audible)
{
    const AecEnergies& r = w.recent;
    const AecEnergies& l = w.lasting;
    if (r.near > kAudible && r.error > r.near + r.echo / 8 && r.echo > r.near / 2) return AecVerdict::restart;
    if (!audible) return AecVerdict::keep;
    if (w.alike > kAlikeRun && r.error > r.near / 8 && r.expected < r.error * block / 4)
        return AecVerdict::relearn;
    return l.error > l.near && l.echo > l.near / 16 ? AecVerdict::shrink : AecVerdict::keep;
}

} // namespace

AecVerdict aec_watch_run(AecWatch& w, int bins, const AecEnergies& now, const Complex* error,
                         const Complex* echo)
{
    smooth(w.recent, now, 10);
    smooth(w.lasting, now, 128);
    if (w.recent.near > kAudible && w.recent.error < w.recent.near / 8) w.failures = 0;
    w.coherence_q15 = coherence(w, bins, error, echo);
    w.alike = w.coherence_q15 > kAlike ? w.alike + 1 : 0;
    if (++w.since <= kHoldOff) return AecVerdict::keep;
    AecVerdict found = verdict(w, bins - 1, now.near > kAudible);
    if (found != AecVerdict::keep) w.since = 0;
    if (found == AecVerdict::restart) w.failures = std::min(w.failures + 1, kMostFailures);
    return found;
}

int32_t aec_watch_drift_q4(const AecWatch& w, int block)
{
    const bool near_is_quiet = w.recent.error * block < w.recent.expected;
    const int32_t alike = std::clamp(w.coherence_q15, kDriftFrom, kDriftFull) - kDriftFrom;
    return 16 + (near_is_quiet ? kDriftMore : 0) + kDriftMore * alike / (kDriftFull - kDriftFrom);
}

// The residual is expected above 0.3 % of the echo (-25 dB) and above a quarter of the error: what is left is ours.
bool aec_watch_learning(const AecWatch& w, int block)
{
    const AecEnergies& r = w.recent;
    return r.expected / 3 > r.echo * block / 1000 && r.expected > r.error * block / 4;
}

} // namespace zep
