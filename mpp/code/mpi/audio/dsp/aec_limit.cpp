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
// Cases of bench/dsp/signals/mk_aec.py at 8 kHz, loudspeaker clipped 16 dB below its peak, without this -> with it: loss
// enhancement from 2 to 8 s 8.3 -> 41.3 dB, near talker's STOI .890 -> .991; 22 dB: 7.7 -> 30.7, .914 -> .996. A
// suppressor of the residual cannot do that: it takes the near talker away with the distortion. Tried and left: D from
// e and v alone, which the second equation's a y hides for seconds; a try at one level only, 4 to 10 dB below the peak,
// which finds either the weakly or the strongly clipped.
#include "mpi/audio/dsp/aec_limit.hpp"

#include "mpi/audio/dsp/fixed_point.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace zep {
namespace {

constexpr int32_t kQuietestPeak = 256 << kAecSampleShift; // -42 dBov
constexpr int kTry = 32;                                  // blocks for each of the two levels
constexpr int kMemory = 32;                               // blocks of evidence while no level is known
constexpr int kQuickMemory = 8; // and once one is: a wrong level is left within a second
// Of the squared deviation of D over its variance. 9: two clipped cases of eight are found 3 s later; 16: three are never
// found. The cases without clipping do not change down to 5. D itself may be small: the filter has learnt some of it.
constexpr int64_t kSure = 5;

// The level that is looked at: 10 or 16 dB below the peak while none is known.
int32_t looked_at(const AecLimit& l)
{
    return std::min(l.level, l.peak * 5 / (l.blocks / kTry % 2 ? 32 : 16));
}

void follow(int64_t& mean, int64_t now, int blocks) { mean += now - mean / blocks; }

void follow(AecLimitSums& s, const AecLimitSums& now, int blocks)
{
    follow(s.ev, now.ev, blocks);
    follow(s.ey, now.ey, blocks);
    follow(s.vv, now.vv, blocks);
    follow(s.vy, now.vy, blocks);
    follow(s.yy, now.yy, blocks);
}

// D of the file's head in Q4, and how sure it is that D is not 0.
struct Change {
    int64_t by;
    int64_t deviation;
};

Change solve(const AecLimitSums& s)
{
    const uint64_t all = uint64_t(s.vv | s.yy | std::abs(s.ev) | std::abs(s.ey));
    const int down = std::max(0, bits_of(all) - 30);
    const int64_t ev = s.ev >> down, ey = s.ey >> down, vv = s.vv >> down, vy = s.vy >> down,
                  yy = s.yy >> down;
    const int64_t above = ev * yy - ey * vy, below = vv * yy - vy * vy;
    if (below <= 0) return {0, 0};
    const int64_t size_q12 = ratio(std::abs(above), below, 12, 1 << 24);
    const int64_t by = size_q12 << 4; // signs are Q15, the denominator is double
    return {above < 0 ? -by : by, (std::abs(above) / (yy + 1) << down >> 12) * size_q12 >> 12};
}

void look_for(AecLimit& l, const AecLimitSums& now)
{
    AecLimitSums& sums = l.sums[l.blocks / kTry % 2];
    follow(sums, now, kMemory);
    const Change change = solve(sums);
    const int32_t edge = looked_at(l);
    if (-change.by < edge / 64 || change.deviation < kSure) return;
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
    ++l.blocks;
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

void aec_limit_learn(AecLimit& l, const AecLimitSums& now, bool settled)
{
    if (l.level == kAecNoLimit) {
        if (settled) look_for(l, now);
        return;
    }
    AecLimitSums& sums = l.sums[0];
    follow(sums, now, kQuickMemory);
    const AecLimitSums step = {now.ev, now.ey, sums.vv, sums.vy, sums.yy};
    const int32_t most = l.level / 2;
    l.level += clamp_to(solve(step).by, most);
    if (l.level <= l.peak) return;
    l.level = kAecNoLimit; // louder than all that is played
    memset(l.sums, 0, sizeof l.sums);
}

} // namespace zep
