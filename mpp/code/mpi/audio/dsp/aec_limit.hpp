// Where the loudspeaker cuts off: an amplifier that is driven too hard clips what it plays, and no linear filter takes
// away the echo of that. The canceller finds the level and clips the far signal in the same way before it filters it.
#pragma once

#include "mpi/audio/dsp/aec_block.hpp"
#include "mpi/audio/dsp/aec_step.hpp"

namespace zep {

// Whitened products of the error e, the echo estimate y and the change v of y if the level were higher; Q12.
struct AecLimitSums {
    enum { kEv, kEy, kVv, kVy, kYy, kSums };
    int64_t at[kSums];
};

struct AecLimit {
    int32_t level;              // Q4: the far signal is cut off there; kAecNoLimit: nowhere
    int32_t peak;               // Q4: of the far signal, falls by a tenth a second
    int useless;                // blocks in which the level was of no use, less those in which it was
    int blocks;                 // since the first of the two levels was taken up
    AecLimitSums sums[2];       // while no level is known: for each of two levels that are tried in turn
    int32_t signs[kAecMaxSize]; // of samples beyond the level, the last two blocks, Q15
};

inline constexpr int32_t kAecNoLimit = 1 << 20;

void aec_limit_init(AecLimit& l);

// One block of far samples, cut off, to Q4; true when l.signs is not all 0.
bool aec_limit_far(AecLimit& l, int block, const int16_t* far, int32_t* cut);

// Adds one partition's products of weights and spectrum of l.signs.
void aec_limit_hear(const Complex* weight, const Complex* signs, int bins, int64_t* re, int64_t* im);

// re, im: what aec_limit_hear() has added up, the spectrum of v with the weights' scale.
AecLimitSums aec_limit_sums(const int64_t* re, const int64_t* im, const Complex* echo, const AecStep* steps,
                            int bins);

// The sums of one block in which l.signs was heard. `settled`: the filter takes some of the echo away.
// `useless`: much is left, and it is echo rather than a near talker.
void aec_limit_learn(AecLimit& l, const AecLimitSums& now, bool settled, bool useless);

} // namespace zep
