// Public noise reducers behind the measuring interface, each at several strengths.
#include "bench/dsp/peers/peers.hpp"

#include <cstring>
#include <speex/speex_preprocess.h>
#include <webrtc/modules/audio_processing/include/audio_processing.h>
#include <webrtc/modules/interface/module_common_types.h>

namespace {

template<int Decibels> void* speex_open(int rate, int points)
{
    SpeexPreprocessState* s = speex_preprocess_state_init(points, rate);
    int on = 1, off = 0, suppress = -Decibels;
    speex_preprocess_ctl(s, SPEEX_PREPROCESS_SET_DENOISE, &on);
    speex_preprocess_ctl(s, SPEEX_PREPROCESS_SET_AGC, &off);
    speex_preprocess_ctl(s, SPEEX_PREPROCESS_SET_DEREVERB, &off);
    speex_preprocess_ctl(s, SPEEX_PREPROCESS_SET_NOISE_SUPPRESS, &suppress);
    return s;
}

int speex_process(void* s, int16_t* io, int)
{
    speex_preprocess_run(static_cast<SpeexPreprocessState*>(s), io);
    return 0;
}

void speex_close(void* s) { speex_preprocess_state_destroy(static_cast<SpeexPreprocessState*>(s)); }

// Works on 10 ms and nothing else.
struct WebRtc {
    webrtc::AudioProcessing* processing;
    webrtc::AudioFrame frame;
};

template<webrtc::NoiseSuppression::Level Level> void* webrtc_open(int rate, int points)
{
    if (points % (rate / 100)) return nullptr;
    auto* w = new WebRtc{webrtc::AudioProcessing::Create(), {}};
    w->processing->noise_suppression()->set_level(Level);
    w->processing->noise_suppression()->Enable(true);
    w->frame.sample_rate_hz_ = rate;
    w->frame.num_channels_ = 1;
    w->frame.samples_per_channel_ = size_t(rate / 100);
    return w;
}

int webrtc_process(void* state, int16_t* io, int points)
{
    auto* w = static_cast<WebRtc*>(state);
    const int block = int(w->frame.samples_per_channel_);
    for (int i = 0; i < points; i += block) {
        memcpy(w->frame.data_, io + i, 2 * size_t(block));
        if (w->processing->ProcessStream(&w->frame)) return -1;
        memcpy(io + i, w->frame.data_, 2 * size_t(block));
    }
    return 0;
}

void webrtc_close(void* state)
{
    auto* w = static_cast<WebRtc*>(state);
    delete w->processing;
    delete w;
}

void* none_open(int, int)
{
    static char nothing;
    return &nothing;
}
int none_process(void*, int16_t*, int) { return 0; }
void none_close(void*) {}

using Level = webrtc::NoiseSuppression;
const vd_ns kPeers[] = {
    {"none", none_open, none_process, none_close},
    {"speex-15", speex_open<15>, speex_process, speex_close},
    {"speex-25", speex_open<25>, speex_process, speex_close},
    {"speex-40", speex_open<40>, speex_process, speex_close},
    {"webrtc-low", webrtc_open<Level::kLow>, webrtc_process, webrtc_close},
    {"webrtc-mod", webrtc_open<Level::kModerate>, webrtc_process, webrtc_close},
    {"webrtc-high", webrtc_open<Level::kHigh>, webrtc_process, webrtc_close},
    {"webrtc-veryhigh", webrtc_open<Level::kVeryHigh>, webrtc_process, webrtc_close},
};

} // namespace

const vd_impl* zep::bench::peers_ns()
{
    static const vd_impl impl = {nullptr, 0, nullptr, 0, kPeers, int(std::size(kPeers)), nullptr, 0};
    return &impl;
}
