// libzepdsp.so: everything of ours that the measuring programs can load beside the peers.
#include "bench/dsp/impl.hpp"

extern "C" const vd_impl* vd_impl_get(void)
{
    using namespace zep::bench;
    static const vd_impl impl = {
        our_codecs().data(),          int(our_codecs().size()),          our_resamplers().data(),
        int(our_resamplers().size()), our_noise_reducers().data(),       int(our_noise_reducers().size()),
        our_echo_cancellers().data(), int(our_echo_cancellers().size()),
    };
    return &impl;
}
