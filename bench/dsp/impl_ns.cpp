// Our noise reducer behind the measuring interface.
#include "bench/dsp/impl.hpp"
#include "mpi/audio/anr.h"

namespace {

void* open(int rate, int points) { return ANR_Create(rate, 2 * points); }
int process(void* state, int16_t* io, int) { return ANR_Process(static_cast<ANR_STATE_S*>(state), io); }
void close(void* state) { ANR_Destroy(static_cast<ANR_STATE_S*>(state)); }

const vd_ns kReducers[] = {{"zep", open, process, close}};

} // namespace

std::span<const vd_ns> zep::bench::our_noise_reducers() { return kReducers; }
