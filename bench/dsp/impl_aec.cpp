// Our echo canceller behind the measuring interface.
#include "bench/dsp/impl.hpp"
#include "mpi/audio/aec.h"

namespace {

void* open_canceller(int rate, int points, int tail_ms) { return AEC_Create(rate, points, tail_ms); }

int cancel(void* canceller, const int16_t* mic, const int16_t* ref, int16_t* out, int)
{
    return AEC_Process(static_cast<AEC_S*>(canceller), mic, ref, out);
}

void close_canceller(void* canceller) { AEC_Destroy(static_cast<AEC_S*>(canceller)); }

const vd_aec cancellers[] = {{"zep", open_canceller, cancel, close_canceller}};

} // namespace

std::span<const vd_aec> zep::bench::our_echo_cancellers() { return cancellers; }
