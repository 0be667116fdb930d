// The echo canceller's adaptive filter: a partitioned-block frequency-domain Kalman filter with a
// diagonal state covariance (Enzner and Vary 2006; Kuech, Mabande and Enzner 2014).
//
// Samples carry 4 fraction bits (Q4) once they are inside, and so do their spectra; powers are Q8,
// weights Q22 and the variances of the weights' errors Q33.
#pragma once

#include "mpi/audio/dsp/aec_block.hpp"
#include "mpi/audio/dsp/aec_limit.hpp"
#include "mpi/audio/dsp/aec_watch.hpp"

namespace zep {

inline constexpr int kAecMaxParts = 26;
inline constexpr int kAecMaxCells = kAecMaxParts * 81; // 13 * 161 is less
inline constexpr int kAecReplays = 2;                  // earlier blocks that are learnt from again
inline constexpr int kAecReplayStep = 4; // blocks between two: neighbours would say the same again
inline constexpr int kAecHistory = kAecReplays * kAecReplayStep;
inline constexpr int kAecMaxRing = (kAecMaxParts / 2 + kAecHistory) * kAecMaxBins;
inline constexpr int kAecLimitParts = 4; // partitions in which a loudspeaker that clips is looked for

struct AecFilter {
    int block; // samples, half a transform
    int bins;
    int parts;  // blocks that the echo path is long
    int ring;   // spectra kept
    int head;   // the newest spectrum
    int turn;   // partition whose taps are trimmed next
    int silent; // blocks since the last far sample that was not 0
    int forget_q20;

    Complex weight[kAecMaxCells];
    int32_t variance[kAecMaxCells];
    int32_t prior[kAecMaxParts]; // first variance of each partition, Q33
    Complex far[kAecMaxRing];
    int64_t far_power[kAecMaxRing];
    int32_t far_frame[kAecMaxSize];
    int16_t near_ring[(kAecHistory + 1) * kAecMaxBlock];
    int near_head;
    int64_t noise[kAecMaxBins]; // what the error holds that the filter cannot learn
    AecWatch watch;

    AecLimit limit;
    Complex beyond[kAecMaxRing];                 // spectra of limit.signs
    bool any_beyond[kAecMaxParts + kAecHistory]; // those that are not 0
    int64_t strength[kAecMaxParts];              // power of a partition's weights

    int32_t error[kAecMaxBlock];   // near less the estimated echo
    int64_t residual[kAecMaxBins]; // power that the residual echo is expected to have
    int64_t echo[kAecMaxBins];     // power of the estimated echo
};

// parts at most kAecMaxParts for blocks of 80, half of that for blocks of 160. Forgets everything that was
// learnt before.
void aec_filter_init(AecFilter& f, int block, int parts, bool short_blocks);

// One block: sets error, residual and echo.
void aec_filter_run(AecFilter& f, const int16_t* near, const int16_t* far);

} // namespace zep
