// The echo canceller's judgement of its filter.
#include "mpi/audio/aec_watch.hpp"

#include "mpi/audio/aec_math.hpp"

#include <algorithm>

namespace zep {
namespace {

constexpr int64_t kAudible = 100000 * 256; // energy of a block, about -60 dBov
constexpr int kHoldOff = 20;               // blocks
constexpr int kLeakRun = 25;               // blocks; a near talker's syllable is shorter
constexpr int32_t kLeakMost = 9830;        // Q15, 0.3
constexpr int32_t kFollow = 1638;          // Q15, 0.05
constexpr int32_t kMostDeviation = 1 << 27;

void smooth(int64_t& mean, int64_t now) { mean += (now - mean) / 10; }

int64_t power(AecComplex v) { return square(v.re) + square(v.im); }

// Q15: how fast the regression follows; slow while the estimated echo is faint.
int64_t pace(const AecEnergies& now)
{
    int64_t by_error = ratio(2 * now.echo, now.error + 256, 15, 32768) * kFollow >> 15;
    int64_t by_level = ratio(now.echo, kAudible, 15, 32768) * kFollow >> 15;
    return std::min({int64_t(kFollow), by_error, by_level});
}

// Q15 share of the estimated echo's power that comes through in the error.
int64_t leak(AecWatch& w, int bins, const AecEnergies& now, const AecComplex* error, const AecComplex* echo)
{
    int64_t both = 0, own = 0;
    for (int k = 1; k < bins; ++k) {
        int64_t e = (power(error[k]) >> 24) - w.error_mean[k];
        int64_t y = (power(echo[k]) >> 25) - w.echo_mean[k]; // of two blocks, the error of one
        w.error_mean[k] += e / 10;
        w.echo_mean[k] += y / 10;
        int64_t held = clamp_to(y, kMostDeviation);
        both += clamp_to(e, kMostDeviation) * held;
        own += held * held;
    }
    int64_t step = pace(now);
    w.covariance += ((both - w.covariance) >> 15) * step;
    w.variance += ((own - w.variance) >> 15) * step;
    return ratio(std::max<int64_t>(w.covariance, 0), std::max<int64_t>(w.variance, 0) + 1, 15, 32768);
}

} // namespace

AecVerdict aec_watch_run(AecWatch& w, int bins, const AecEnergies& now, const AecComplex* error,
                         const AecComplex* echo)
{
    smooth(w.near, now.near);
    smooth(w.error, now.error);
    smooth(w.echo, now.echo);
    smooth(w.expected, now.expected);
    w.leaking = leak(w, bins, now, error, echo) > kLeakMost ? w.leaking + 1 : 0;
    if (++w.since <= kHoldOff) return AecVerdict::keep;
    AecVerdict verdict = AecVerdict::keep;
    const int block = bins - 1;
    bool adds = w.error > w.near + w.echo / 2 && w.echo > w.near / 2 && w.near > kAudible;
    bool leaks = w.leaking > kLeakRun && w.expected < w.error * block / 4 && now.near > kAudible;
    if (leaks) verdict = AecVerdict::relearn;
    if (adds) verdict = AecVerdict::restart;
    if (verdict != AecVerdict::keep) w.since = 0;
    return verdict;
}

bool aec_watch_learning(const AecWatch& w, int block)
{
    return w.expected / 3 > w.echo * block / 1000 && w.expected > w.error * block / 4;
}

} // namespace zep
