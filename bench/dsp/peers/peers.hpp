// The peers behind the measuring interface, one table a family; their libraries are linked into the measuring
// programs only.
#pragma once

#include "bench/dsp/vdsp_if.h"

namespace zep::bench {

const vd_impl* peers_codec(); // peers_codec.cpp
const vd_impl* peers_rs();    // peers_rs.cpp
const vd_impl* peers_ns();    // peers_ns.cpp
const vd_impl* peers_aec();   // peers_aec.cpp

} // namespace zep::bench
