// The gain of every spectral line, by a small recurrent network over bands and a smaller one over lines.
#pragma once
#include "mpi/audio/dsp/anr_track.hpp"

namespace zep::anr {

inline constexpr int kBands8k = 20, kBands16k = 26; // 8 kHz uses the lower ones
inline constexpr int kFeatures = 3;                 // a band
inline constexpr int kDense = 32, kHidden = 48;     // first layer, recurrent layer
inline constexpr int kLineInputs = 7, kLineUnits = 8;

/** First line of each band, and the end: 94 Hz wide up to 700 Hz, then about a sixth of an octave. */
inline constexpr int kBandEdges[kBands16k + 1] = {0,  4,   7,   10,  13,  16,  19,  22,  26,
                                                  30, 34,  39,  44,  50,  57,  65,  74,  84,
                                                  96, 111, 129, 145, 164, 186, 211, 237, 257};

/** Trained coefficients; Q6. Offsets have the scale of the sum that they are added to. */
struct Weights {
    int8_t dense[kDense][kBands16k * kFeatures];
    int8_t reset[kHidden][kDense + kHidden]; // from the dense layer and from the last block's units
    int8_t keep[kHidden][kDense + kHidden];
    int8_t candidate[kHidden][kDense];
    int8_t candidate_back[kHidden][kHidden];
    int8_t context[kLineUnits][kBands16k][kHidden];
    int8_t line[kLineUnits][kLineInputs];
    int8_t gain[kLineUnits];
    int32_t dense_offset[kDense];                  // Q16
    int32_t reset_offset[kHidden];                 // Q21
    int32_t keep_offset[kHidden];                  // Q21
    int32_t candidate_offset[kHidden];             // Q21
    int32_t candidate_back_offset[kHidden];        // Q21
    int32_t context_offset[kLineUnits][kBands16k]; // Q21
    int32_t gain_offset;                           // Q16
};
extern const Weights kWeights;

struct Net {
    int16_t units[kDense + kHidden] = {}; // dense layer, recurrent layer; Q15
    int16_t before[kMaxLines] = {};       // the previous block's signal-to-floor ratio a line, Q10
    bool started = false;
};

/**
 * @param tracks    after track()
 * @param band_log  log2 of each band's mean power, Q8
 * @param gain_q15  one gain for each of kBandEdges[bands] lines
 */
void net_gains(Net& net, const Tracks& tracks, const int16_t* band_log, int bands, int16_t* gain_q15);

} // namespace zep::anr
