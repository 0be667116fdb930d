// Our codecs and voice processing behind the measuring interface: one table a family, each in its own file.
#pragma once

#include "bench/dsp/vdsp_if.h"

#include <span>

namespace zep::bench {

std::span<const vd_codec> our_codecs();         // impl_codec.cpp
std::span<const vd_resampler> our_resamplers(); // impl_rs.cpp
std::span<const vd_ns> our_noise_reducers();    // impl_ns.cpp
std::span<const vd_aec> our_echo_cancellers();  // impl_aec.cpp

} // namespace zep::bench
