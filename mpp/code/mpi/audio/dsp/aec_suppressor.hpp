// Takes away what the adaptive filter leaves of the echo.
//
// Each bin's gain is a Wiener gain with decision-directed smoothing (Ephraim and Malah 1984), for a
// residual echo of the power that the filter expects of its own error. The gains become a
// minimum-phase filter of kAecTaps taps, which delays nothing.
#pragma once

#include "mpi/audio/dsp/aec_block.hpp"

namespace zep {

inline constexpr int kAecTaps = 48;

struct AecSuppressor {
    int block;
    int bins;
    int count;                  // blocks in the running noise window
    int32_t near_q15;           // how surely the near talker speaks
    int32_t last[kAecMaxBlock]; // the block before, Q4
    int32_t gain_q15[kAecMaxBins];
    int32_t ratio_q12[kAecMaxBins];      // error to residual echo, the block before
    int32_t distortion_q20[kAecMaxBins]; // least of the error to the echo taken away, slowly followed
    int64_t echo_smooth[kAecMaxBins];
    int64_t smooth[kAecMaxBins]; // power of the error
    int64_t noise[kAecMaxBins];  // power of the room's noise, below which nothing is taken away
    int64_t least[2][kAecMaxBins];
    int16_t taps[kAecTaps]; // Q14, of the block before, last first
    bool open;              // those taps pass everything
    int16_t history[kAecTaps + kAecMaxBlock];
};

// Forgets everything.
void aec_suppressor_init(AecSuppressor& s, int block);

// error: Q4, one block; residual: power that the filter expects the residual echo to have; echo: power
// of the echo that it took away.
void aec_suppressor_run(AecSuppressor& s, const int32_t* error, const int64_t* residual, const int64_t* echo,
                        int16_t* out);

} // namespace zep
