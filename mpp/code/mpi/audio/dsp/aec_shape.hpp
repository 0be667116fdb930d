// Minimum-phase filter from gains.
#pragma once

#include <cstdint>

namespace zep {

// gain_q15: block + 1 bins from 0 to half the rate, each 1 to 32768. taps: Q14, at most 48; their
// absolute sum is below 4.
void aec_shape(int block, const int32_t* gain_q15, int16_t* taps, int count);

} // namespace zep
