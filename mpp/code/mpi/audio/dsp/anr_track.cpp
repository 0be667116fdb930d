// Noise floors in the logarithmic domain: a floor follows the smoothed level down at once and up slowly, in
// steps that a loud line cannot enlarge. The first quarter of a second is averaged, so that noise is known
// soon.
#include "mpi/audio/dsp/anr_track.hpp"
#include <algorithm>

namespace zep::anr {
namespace {

// Logarithms are base 2 of power, Q16: 1 << 16 is 3 dB. The trackers' outputs are the network's inputs, so the weights
// were trained with these numbers: another value needs another training (bench/dsp/train/network.py holds the same ones).
constexpr int kStart = 24;               // blocks of the opening average, a quarter of a second
constexpr int32_t kStartStep = 20 << 16; // 60 dB
constexpr int32_t kStep = 2 << 16; // 6 dB: a louder line raises the floor no faster than one 6 dB above it

// 1 / (age + 2), Q16
int32_t opening_rate(int age) { return 65536 / (age + 2); }

template<int Down> void opening(int32_t* floor, const int32_t* level, int lines, int32_t rate_q16)
{
    for (int k = 0; k < lines; ++k) {
        const int32_t d = level[k] - floor[k];
        floor[k] += d < 0 ? d >> Down : ((std::min(d, kStartStep) >> 8) * rate_q16) >> 8;
    }
}

// Down by 2^-Down of the difference a block; up by 2^-Up of it, held to kStep.
template<int Down, int Up> void follow(int32_t* floor, const int32_t* level, int lines)
{
    for (int k = 0; k < lines; ++k) {
        const int32_t d = level[k] - floor[k];
        floor[k] += std::min(d, 0) >> Down;
        floor[k] += std::clamp(d, 0, kStep) >> Up;
    }
}

} // namespace

void track(Tracks& t, int lines)
{
    if (t.age == 0)
        for (int k = 0; k < lines; ++k) t.smooth[k] = t.slow[k] = t.fast[k] = t.now[k] * 256;
    for (int k = 0; k < lines; ++k) t.smooth[k] += (t.now[k] * 256 - t.smooth[k]) >> 2;
    if (t.age >= kStart) {
        follow<3, 7>(t.slow, t.smooth, lines);
        follow<2, 5>(t.fast, t.smooth, lines);
        return;
    }
    opening<3>(t.slow, t.smooth, lines, opening_rate(t.age));
    opening<2>(t.fast, t.smooth, lines, opening_rate(t.age));
    ++t.age;
}

} // namespace zep::anr
