// Level and noise trackers, one set a spectral line.
#pragma once
#include <cstdint>

namespace zep::anr {

inline constexpr int kMaxWindow = 512; // points: 32 ms at 16 kHz
inline constexpr int kMaxLines = kMaxWindow / 2 + 1;

/** Base-2 logarithms of power: `now` in Q8, what is remembered in Q16. */
struct Tracks {
    int age = 0; // blocks heard, counted as far as it matters
    int16_t now[kMaxLines] = {};
    int32_t smooth[kMaxLines] = {}; // mean over about 40 ms
    int32_t slow[kMaxLines] = {};   // noise floor: falls within 80 ms, rises at most 4.7 dB a second
    int32_t fast[kMaxLines] = {};   // noise floor: falls within 40 ms, rises at most 19 dB a second
};

/** Take in the next block's power, `now`, of that many lines. */
void track(Tracks& tracks, int lines);

} // namespace zep::anr
