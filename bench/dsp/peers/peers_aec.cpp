// The peers' echo cancellers behind the common interface.
#include "bench/dsp/peers/peers.hpp"

#include <cstring>
#include <iterator>
#include <speex/speex_echo.h>
#include <speex/speex_preprocess.h>
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include <webrtc/common.h>
#include <webrtc/modules/audio_processing/include/audio_processing.h>
#include <webrtc/modules/interface/module_common_types.h>
#pragma GCC diagnostic pop

namespace {

// speexdsp's filter, with and without its preprocessor, which takes the rest of the echo away.
struct Speex {
    SpeexEchoState* echo;
    SpeexPreprocessState* rest;
};

template<bool Rest> void* speex_open(int rate, int points, int tail_ms)
{
    auto* s = new Speex{speex_echo_state_init(points, rate / 1000 * tail_ms), nullptr};
    speex_echo_ctl(s->echo, SPEEX_ECHO_SET_SAMPLING_RATE, &rate);
    if (!Rest) return s;
    int on = 1, off = 0; // it works only with the denoiser on
    s->rest = speex_preprocess_state_init(points, rate);
    speex_preprocess_ctl(s->rest, SPEEX_PREPROCESS_SET_DENOISE, &on);
    speex_preprocess_ctl(s->rest, SPEEX_PREPROCESS_SET_AGC, &off);
    speex_preprocess_ctl(s->rest, SPEEX_PREPROCESS_SET_ECHO_STATE, s->echo);
    return s;
}

int speex_process(void* state, const int16_t* mic, const int16_t* ref, int16_t* out, int)
{
    auto* s = static_cast<Speex*>(state);
    speex_echo_cancellation(s->echo, mic, ref, out);
    if (s->rest) speex_preprocess_run(s->rest, out);
    return 0;
}

void speex_close(void* state)
{
    auto* s = static_cast<Speex*>(state);
    if (s->rest) speex_preprocess_state_destroy(s->rest);
    speex_echo_state_destroy(s->echo);
    delete s;
}

enum class Kind { moderate, high, extended, mobile };

// webrtc-audio-processing works in frames of 10 ms.
struct Webrtc {
    webrtc::AudioProcessing* audio;
    webrtc::AudioFrame near, far;
    int block;
};

webrtc::AudioProcessing* create(Kind kind)
{
    if (kind != Kind::extended) return webrtc::AudioProcessing::Create();
    webrtc::Config config;
    config.Set<webrtc::ExtendedFilter>(new webrtc::ExtendedFilter(true));
    return webrtc::AudioProcessing::Create(config);
}

void set_up(webrtc::AudioProcessing& audio, Kind kind)
{
    if (kind == Kind::mobile) {
        audio.echo_control_mobile()->enable_comfort_noise(false);
        audio.echo_control_mobile()->set_routing_mode(webrtc::EchoControlMobile::kSpeakerphone);
        audio.echo_control_mobile()->Enable(true);
        return;
    }
    audio.echo_cancellation()->enable_drift_compensation(false);
    audio.echo_cancellation()->set_suppression_level(kind == Kind::moderate
                                                         ? webrtc::EchoCancellation::kModerateSuppression
                                                         : webrtc::EchoCancellation::kHighSuppression);
    audio.echo_cancellation()->Enable(true);
}

template<Kind K> void* webrtc_open(int rate, int points, int)
{
    if (points % (rate / 100)) return nullptr;
    auto* w = new Webrtc{create(K), {}, {}, rate / 100};
    set_up(*w->audio, K);
    w->audio->Initialize(rate, rate, rate, webrtc::AudioProcessing::kMono, webrtc::AudioProcessing::kMono,
                         webrtc::AudioProcessing::kMono);
    for (auto* f : {&w->near, &w->far}) {
        f->sample_rate_hz_ = rate;
        f->num_channels_ = 1;
        f->samples_per_channel_ = size_t(w->block);
    }
    return w;
}

int webrtc_process(void* state, const int16_t* mic, const int16_t* ref, int16_t* out, int points)
{
    auto* w = static_cast<Webrtc*>(state);
    const size_t size = sizeof(int16_t) * size_t(w->block);
    int failed = 0;
    for (int i = 0; i < points; i += w->block) {
        memcpy(w->far.data_, ref + i, size);
        failed |= w->audio->AnalyzeReverseStream(&w->far);
        failed |= w->audio->set_stream_delay_ms(0);
        memcpy(w->near.data_, mic + i, size);
        failed |= w->audio->ProcessStream(&w->near);
        memcpy(out + i, w->near.data_, size);
    }
    return failed;
}

void webrtc_close(void* state)
{
    auto* w = static_cast<Webrtc*>(state);
    delete w->audio;
    delete w;
}

const vd_aec cancellers[] = {
    {"speex-mdf", speex_open<false>, speex_process, speex_close},
    {"speex-mdf+res", speex_open<true>, speex_process, speex_close},
    {"webrtc-mod", webrtc_open<Kind::moderate>, webrtc_process, webrtc_close},
    {"webrtc-high", webrtc_open<Kind::high>, webrtc_process, webrtc_close},
    {"webrtc-ext", webrtc_open<Kind::extended>, webrtc_process, webrtc_close},
    {"webrtc-aecm", webrtc_open<Kind::mobile>, webrtc_process, webrtc_close},
};

} // namespace

const vd_impl* zep::bench::peers_aec()
{
    static const vd_impl impl = {nullptr, 0, nullptr, 0, nullptr, 0, cancellers, int(std::size(cancellers))};
    return &impl;
}
