#include "bench/dsp/impl.hpp"

std::span<const vd_ns> zep::bench::our_noise_reducers() { return {}; }
