// Tells a change of the echo path from a near talker.
//
// Both raise the error. But after a change the filter adds its outdated echo to the microphone's
// instead of removing one, and what is left is coherent with the estimated echo, since both come from
// the far signal; a near talker's is not.
#pragma once

#include "mpi/audio/dsp/aec_block.hpp"

namespace zep {

struct AecEnergies {
    int64_t near; // Q8, of a block
    int64_t error;
    int64_t echo;     // the estimated one
    int64_t expected; // of the error as the filter expects it, times the block's length
};

struct AecWatch {
    AecEnergies recent;            // smoothed over a tenth of a second
    AecEnergies lasting;           // over more than one
    int64_t cross_re[kAecMaxBins]; // of error and echo
    int64_t cross_im[kAecMaxBins];
    int64_t error_power[kAecMaxBins];
    int64_t echo_power[kAecMaxBins];
    int32_t coherence_q15; // of the error with the echo that was taken away
    int alike;             // blocks in which the error was coherent with the echo
    int failures;          // restarts since the filter last took most of the echo away
    int since;             // blocks since the last verdict
};

enum class AecVerdict {
    keep,
    shrink,  // for a second and more the filter has taken nothing away: less of it
    relearn, // some of the echo path is new
    restart, // nothing of it is left
};

AecVerdict aec_watch_run(AecWatch& w, int bins, const AecEnergies& now, const Complex* error,
                         const Complex* echo);

// By how much faster than in a settled room the echo path is taken to drift, Q4: 1 to 19.
//
// Clocks that drift apart and tones that sound for the first time need a filter that forgets quickly; a near talker
// needs one that does not, and raises the error just as they do. Two kinds of evidence exclude the near talker:
// the error is no larger than the filter expects, or it is coherent with the echo that was taken away. Ten times the
// rate at all times, in dB before -> after: drift of 50 ppm 24 -> 31, music 21 -> 35, but the near talker's STOI .994
// -> .980. With the evidence it is 32, 36 and .992. The first kind alone drifts at 16 kHz (19 dB instead of 28) and
// leads to needless restarts where the loudspeaker clips (3 dB instead of 8); the second alone does not learn music
// (24 dB).
int32_t aec_watch_drift_q4(const AecWatch& w, int block);

// The filter is still far from its aim, and what it leaves is echo rather than a near talker.
bool aec_watch_learning(const AecWatch& w, int block);

} // namespace zep
