// The level at which the loudspeaker cuts off.
//
// With far signal x, level L, filter W and microphone d, the error is e = d - W * clip(x, L). If the true level differs
// from L by D, then near L
//
//   e = a y + D v    v = W * s, with s = sign(x) where |x| > L and 0 elsewhere
//
// where a y is what W itself is too small by: a filter that learnt from clipped echo is. D follows from two normal
// equations, whose products are taken over the bins of the spectrum, each divided by the power that is expected of the
// error (S + 2 N), so that a near talker counts little where he is loud:
//
//   D = (<e,v> <y,y> - <e,y> <v,y>) / (<v,v> <y,y> - <v,y>^2)
//
// The error's frame begins with a block of zeros, the others' do not; that doubles the denominator. While no level is
// known, v is made for two levels in turn, and x is left as it is: a loudspeaker that does not clip loses nothing. A
// level is taken once D is negative, large and beyond chance; from then on each block moves it by a Gauss-Newton step.
//
// Cases of bench/dsp/signals/mk_aec.py at 8 kHz, loudspeaker clipped 16 dB below its peak, without this -> with it:
// loss enhancement from 2 to 8 s 8.3 -> 41.3 dB, near talker's STOI .890 -> .991; 22 dB: 7.7 -> 28.4, .914 -> .996.
// A suppressor of the residual cannot do that: it takes the near talker away with the distortion. Tried and left:
//  - D from e and v alone, which the second equation's a y hides for seconds;
//  - a try at one level only, 4 to 14 dB below the peak, which finds either the weakly or the strongly clipped;
//  - S + 2 N before the block's own error has entered N: sums that are eight times as sure, also of wrong levels.
#include "mpi/audio/dsp/aec_limit.hpp"

#include "mpi/audio/dsp/fixed_point.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace zep {
namespace {

constexpr int32_t kQuietestPeak = 256 << kAecSampleShift; // -42 dBov
constexpr int kTry = 32;                                  // blocks for each of the two levels
constexpr int kMemory = 5;                                // 2^5 blocks of evidence while no level is known
constexpr int kQuickMemory = 3; // and 2^3 once one is: a wrong level is left within a second
// Of the squared deviation of D over its variance. 9: two clipped cases of eight are found 3 s later; 16: three are
// never found. The cases without clipping do not change down to 5.
constexpr int64_t kSure = 5;
// Of the level that is looked at, the least D. A 64th: one more case of hard clipping is found, but a loudspeaker that
// limits softly (nl) is taken for one that clips, and 18 to 32 dB become 9 to 18.
constexpr int kLeastChange = 16;
// Blocks in which a level seems to be of no use, more than in which it does, before it is given up. Steps alone end far
// below the peak when an amplifier stops clipping: 13 to 20 dB for good instead of 45.
constexpr int kMostUseless = 100;

// The level that is looked at: 10 or 16 dB below the peak while none is known.
int32_t looked_at(const AecLimit& l) { return std::min(l.level, l.peak * 5 / (l.blocks / kTry ? 32 : 16)); }

void follow(AecLimitSums& mean, const AecLimitSums& now, int places)
{
    for (int i = 0; i < AecLimitSums::kSums; ++i) mean.at[i] += now.at[i] - (mean.at[i] >> places);
}

// D of the file's head in Q4, and how sure it is that D is not 0.
struct Change {
    int64_t by;
    int64_t deviation;
};

Change solve(const AecLimitSums& s)
{
    uint64_t all = 0;
    for (int64_t v : s.at) all |= uint64_t(v < 0 ? -v : v);
    const int down = std::max(0, bits_of(all) - 30);
    int32_t at[AecLimitSums::kSums];
    for (int i = 0; i < AecLimitSums::kSums; ++i) at[i] = int32_t(s.at[i] >> down);
    const auto [ev, ey, vv, vy, yy] = at;
    const int64_t above = int64_t(ev) * yy - int64_t(ey) * vy, below = int64_t(vv) * yy - int64_t(vy) * vy;
    if (below <= 0) return {0, 0};
    const int64_t size = above < 0 ? -above : above;
    const int64_t size_q12 = ratio(size, below, 12, 1 << 24);
    const int64_t by = size_q12 << 4; // signs are Q15, the denominator is double
    return {above < 0 ? -by : by, (ratio(size, yy + 1, 0, INT32_MAX) << down >> 12) * size_q12 >> 12};
}

void look_for(AecLimit& l, const AecLimitSums& now)
{
    AecLimitSums& sums = l.sums[l.blocks / kTry];
    follow(sums, now, kMemory);
    const Change change = solve(sums);
    const int32_t edge = looked_at(l);
    if (-change.by < edge / kLeastChange || change.deviation < kSure) return;
    l.level = edge + int32_t(std::max<int64_t>(change.by, -edge / 2));
    l.sums[0] = sums;
}

} // namespace

void aec_limit_init(AecLimit& l)
{
    memset(&l, 0, sizeof l);
    l.level = kAecNoLimit;
    l.peak = kQuietestPeak;
}

bool aec_limit_far(AecLimit& l, int block, const int16_t* far, int32_t* cut)
{
    l.blocks = (l.blocks + 1) % (2 * kTry);
    memmove(l.signs, l.signs + block, size_t(block) * sizeof l.signs[0]);
    l.peak = std::max(l.peak - (l.peak >> 10), kQuietestPeak);
    for (int i = 0; i < block; ++i) {
        cut[i] = far[i] * (1 << kAecSampleShift);
        l.peak = std::max(l.peak, std::abs(cut[i]));
    }
    const int32_t edge = looked_at(l);
    for (int i = 0; i < block; ++i) {
        l.signs[block + i] = cut[i] > edge ? 1 << 15 : cut[i] < -edge ? -(1 << 15) : 0;
        cut[i] = clamp_to(cut[i], l.level);
    }
    return std::any_of(l.signs, l.signs + 2 * block, [](int32_t v) { return v != 0; });
}

void aec_limit_hear(const Complex* weight, const Complex* signs, int bins, int64_t* re, int64_t* im)
{
    for (int k = 0; k < bins; ++k) {
        re[k] += int64_t(weight[k].re) * signs[k].re - int64_t(weight[k].im) * signs[k].im;
        im[k] += int64_t(weight[k].re) * signs[k].im + int64_t(weight[k].im) * signs[k].re;
    }
}

AecLimitSums aec_limit_sums(const int64_t* re, const int64_t* im, const Complex* echo, const AecStep* steps,
                            int bins)
{
    AecLimitSums sums = {};
    for (int k = 1; k < bins; ++k) {
        const AecStep& s = steps[k];
        const Complex e = {s.re, s.im};
        const Complex v = {clamp_to(re[k] >> kAecWeightShift, kAecMostSpectrum),
                           clamp_to(im[k] >> kAecWeightShift, kAecMostSpectrum)};
        const Complex* pairs[][2] = {
            {&e, &v}, {&e, &echo[k]}, {&v, &v}, {&v, &echo[k]}, {&echo[k], &echo[k]}};
        for (int i = 0; i < AecLimitSums::kSums; ++i) {
            const auto [a, b] = pairs[i];
            const int64_t product = int64_t(a->re) * b->re + int64_t(a->im) * b->im;
            // e has been divided by D = S + 2 N already.
            sums.at[i] +=
                a == &e ? product >> (s.places - 13) : (product >> 20) * (s.inverse >> 8) >> (s.places - 10);
        }
    }
    return sums;
}

void aec_limit_learn(AecLimit& l, const AecLimitSums& now, bool settled, bool useless)
{
    if (l.level == kAecNoLimit) {
        if (settled) look_for(l, now);
        return;
    }
    AecLimitSums& sums = l.sums[0];
    follow(sums, now, kQuickMemory);
    AecLimitSums step = sums;
    step.at[AecLimitSums::kEv] = now.at[AecLimitSums::kEv];
    step.at[AecLimitSums::kEy] = now.at[AecLimitSums::kEy];
    // Half at most, and never below -30 dB of the peak: from 0 it would not rise again.
    l.level = std::max(l.level + clamp_to(solve(step).by, l.level / 2), l.peak / 32);
    l.useless = useless ? l.useless + 1 : std::max(l.useless - 1, 0);
    if (l.level <= l.peak && l.useless < kMostUseless) return;
    l.level = kAecNoLimit; // louder than all that is played, or the amplifier no longer clips
    l.useless = 0;
    memset(l.sums, 0, sizeof l.sums);
}

} // namespace zep
