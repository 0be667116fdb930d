// The echo canceller's judgement of its filter.
#include "mpi/audio/dsp/aec_watch.hpp"

#include "mpi/audio/dsp/fixed_point.hpp"

#include <algorithm>

namespace zep {
namespace {

constexpr int64_t kAudible = 100000 * 256; // energy of a block, about -60 dBov
constexpr int kHoldOff = 20;               // blocks
constexpr int32_t kAlike = 9830;           // Q15, 0.3; a near talker's stays below nearly always
constexpr int kAlikeRun = 25;              // blocks
constexpr int32_t kDriftMore = 9 * 16;     // Q4: see aec_watch_drift_q4()
constexpr int32_t kDriftFrom = 1500; // Q15 coherence: 0.05, more than a near talker and the far one have
constexpr int32_t kDriftFull = 8000; // and 0.24
constexpr int kMostFailures = 4;
constexpr int64_t kMostPower = 1 << 26;

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

bool aec_watch_learning(const AecWatch& w, int block)
{
    const AecEnergies& r = w.recent;
    return r.expected / 3 > r.echo * block / 1000 && r.expected > r.error * block / 4;
}

} // namespace zep
