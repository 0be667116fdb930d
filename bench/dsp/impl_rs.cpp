// Our resamplers behind the measuring interface.
#include "bench/dsp/impl.hpp"
#include "mpi/audio/resampler.h"

namespace {

using Process = int (*)(RESAMPLER_S*, const int16_t*, int, int16_t*);
constexpr Process kProcess[] = {ResamplerMono1X2Process, ResamplerMono2X1Process, ResamplerMono1X4Process,
                                ResamplerMono4X1Process, ResamplerMono1X6Process, ResamplerMono6X1Process};

struct Open {
    RESAMPLER_S* resampler;
    Process process;
};

void* open(int in_rate, int out_rate, int)
{
    for (int kind = RESAMPLER_1X2; kind <= RESAMPLER_6X1; ++kind)
        if (ResamplerOutPoints(kind, in_rate) == out_rate)
            return new Open{ResamplerCreate(kind, in_rate), kProcess[kind - 1]};
    return nullptr;
}

int process(void* state, const int16_t* in, int points, int16_t* out)
{
    auto* o = static_cast<Open*>(state);
    return o->process(o->resampler, in, points, out);
}

void close(void* state)
{
    auto* o = static_cast<Open*>(state);
    ResamplerDestroy(o->resampler);
    delete o;
}

const vd_resampler kResamplers[] = {{"zep", open, process, close}};

} // namespace

std::span<const vd_resampler> zep::bench::our_resamplers() { return kResamplers; }
