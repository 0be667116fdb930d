// Tells a change of the echo path from a near talker.
//
// Both raise the error. But after a change the filter adds its outdated echo to the microphone's
// instead of removing one, and the error's spectrum follows the estimated echo's in time (the
// regression of one's power on the other's, Valin 2007), which a near talker's does not.
#ifndef MPI_AUDIO_AEC_WATCH_HPP
#define MPI_AUDIO_AEC_WATCH_HPP

#include "mpi/audio/aec_fft.hpp"

namespace zep {

struct AecWatch {
    int64_t near; // energies of a block, smoothed, Q8
    int64_t error;
    int64_t echo;
    int64_t expected; // energy of the error that the filter expects, as error * block
    int64_t error_mean[kAecMaxBins];
    int64_t echo_mean[kAecMaxBins];
    int64_t covariance;
    int64_t variance;
    int leaking; // blocks in which much of the echo came through
    int since;   // blocks since the last verdict
};

enum class AecVerdict { keep, relearn, restart };

struct AecEnergies {
    int64_t near;
    int64_t error;
    int64_t echo;
    int64_t expected;
};

AecVerdict aec_watch_run(AecWatch& w, int bins, const AecEnergies& now, const AecComplex* error,
                         const AecComplex* echo);

// The filter is still far from its aim, and what it leaves is echo rather than a near talker.
bool aec_watch_learning(const AecWatch& w, int block);

} // namespace zep

#endif
