// The step that one bin's weights take: shared by all partitions, and by whatever else learns from the error.
#pragma once

#include "mpi/audio/dsp/fft.hpp"
#include "mpi/audio/dsp/fixed_point.hpp"

#include <algorithm>
#include <cstdlib>

namespace zep {

// Error over the power D of the innovation (S + 2 N), bin by bin: dividing by D takes its reciprocal as mantissa and
// exponent, so that the loop over partitions multiplies and shifts but never divides.
//
//   D         = normal * 2^(places - 31), 2^30 <= normal < 2^31
//   inverse   = 2^61 / normal             so 1 / D = inverse * 2^(-30 - places)
//   re, im    = error * inverse / 2^31    so error / D = re * 2^(1 - places)
//
// A weight moves by variance * conj(far) * step, then shifted.
struct AecStep {
    int32_t re;
    int32_t im;
    int32_t inverse;
    int8_t places;
    int8_t product_shift; // of conj(far) * step
    int8_t weight_shift;  // of the whole
    int8_t far_shift;     // brings far powers into 26 bits
    int8_t variance_shift;
};

// far_bits: of the largest far power in the bin.
inline AecStep aec_step(Complex error, uint64_t power, int far_bits, int far_shift)
{
    const int places = bits_of(power);
    const uint64_t normal = places > 31 ? power >> (places - 31) : power << (31 - places);
    const int32_t inverse = int32_t(std::min<uint64_t>((uint64_t(1) << 61) / normal, INT32_MAX));
    AecStep s = {int32_t(int64_t(error.re) * inverse >> 31),
                 int32_t(int64_t(error.im) * inverse >> 31),
                 inverse,
                 int8_t(places),
                 0,
                 0,
                 int8_t(far_shift),
                 int8_t(std::max(0, places + 5 - far_shift))};
    const int reach = bits_of(uint64_t(std::max(std::abs(int64_t(s.re)), std::abs(int64_t(s.im)))));
    s.product_shift = int8_t(std::max(0, (far_bits + 1) / 2 + reach + 1 - 31));
    s.weight_shift = int8_t(std::clamp(10 + places - s.product_shift, 1, 62));
    return s;
}

} // namespace zep
