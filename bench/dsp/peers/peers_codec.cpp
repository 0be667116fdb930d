// The peers' speech codecs behind the measuring interface.
#include "bench/dsp/peers/peers.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" {
#include <inttypes.h>
#include <spandsp.h>
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libavutil/channel_layout.h>
}
#include <sox.h>

namespace {

// spandsp
template<int MODE> void* sp711_open(int) { return g711_init(nullptr, MODE); }
int sp711_enc(void* s, const int16_t* p, int n, uint8_t* o) { return g711_encode((g711_state_t*)s, o, p, n); }
int sp711_dec(void* s, const uint8_t* i, int b, int16_t* p) { return g711_decode((g711_state_t*)s, p, i, b); }
void sp711_close(void* s) { g711_free((g711_state_t*)s); }

template<int RATE, int PACK> void* sp726_open(int)
{
    return g726_init(nullptr, RATE, G726_ENCODING_LINEAR, PACK);
}
int sp726_enc(void* s, const int16_t* p, int n, uint8_t* o) { return g726_encode((g726_state_t*)s, o, p, n); }
int sp726_dec(void* s, const uint8_t* i, int b, int16_t* p) { return g726_decode((g726_state_t*)s, p, i, b); }
void sp726_close(void* s) { g726_free((g726_state_t*)s); }

template<int V> void* spima_open(int) { return ima_adpcm_init(nullptr, V, 0); }
int spima_enc(void* s, const int16_t* p, int n, uint8_t* o)
{
    return ima_adpcm_encode((ima_adpcm_state_t*)s, o, p, n);
}
int spima_dec(void* s, const uint8_t* i, int b, int16_t* p)
{
    return ima_adpcm_decode((ima_adpcm_state_t*)s, p, i, b);
}
void spima_close(void* s) { ima_adpcm_free((ima_adpcm_state_t*)s); }

// ffmpeg
struct Ff {
    AVCodecContext* c;
    AVFrame* f;
    AVPacket* p;
};

void* ff_eopen(AVCodecID id, int bits, int block, int trellis, int frame)
{
    av_log_set_level(AV_LOG_ERROR);
    const AVCodec* k = avcodec_find_encoder(id);
    if (!k) return nullptr;
    Ff* s = new Ff;
    s->c = avcodec_alloc_context3(k);
    s->c->sample_rate = 8000;
    s->c->sample_fmt = k->sample_fmts ? k->sample_fmts[0] : AV_SAMPLE_FMT_S16;
    s->c->time_base = AVRational{1, 8000};
    s->c->trellis = trellis;
    s->c->thread_count = 1;
    av_channel_layout_default(&s->c->ch_layout, 1);
    if (bits) {
        s->c->bit_rate = bits * 8000;
        s->c->bits_per_coded_sample = bits;
        av_opt_set_int(s->c->priv_data, "code_size", bits, 0);
    }
    if (block) av_opt_set_int(s->c->priv_data, "block_size", block, 0);
    if (avcodec_open2(s->c, k, nullptr) < 0) {
        fprintf(stderr, "ffmpeg encoder %s: not opened\n", k->name);
        exit(1);
    }
    if (frame && !block) s->c->frame_size = frame;
    s->f = av_frame_alloc();
    s->f->nb_samples = s->c->frame_size ? s->c->frame_size : (frame ? frame : 160);
    s->f->format = s->c->sample_fmt;
    av_channel_layout_default(&s->f->ch_layout, 1);
    s->f->sample_rate = 8000;
    if (av_frame_get_buffer(s->f, 0) < 0) exit(1);
    s->p = av_packet_alloc();
    return s;
}
int ff_enc(void* v, const int16_t* p, int n, uint8_t* o)
{
    Ff* s = (Ff*)v;
    int fs = s->f->nb_samples, out = 0;
    for (int i = 0; i + fs <= n; i += fs) {
        if (av_frame_make_writable(s->f) < 0) exit(1);
        memcpy(s->f->data[0], p + i, 2 * (size_t)fs);
        if (avcodec_send_frame(s->c, s->f) < 0) {
            fprintf(stderr, "send_frame\n");
            exit(1);
        }
        while (avcodec_receive_packet(s->c, s->p) == 0) {
            memcpy(o + out, s->p->data, s->p->size);
            out += s->p->size;
            av_packet_unref(s->p);
        }
    }
    return out;
}
void ff_close(void* v)
{
    Ff* s = (Ff*)v;
    av_frame_free(&s->f);
    av_packet_free(&s->p);
    avcodec_free_context(&s->c);
    delete s;
}
void* ff_dopen(AVCodecID id, int bits, int block)
{
    const AVCodec* k = avcodec_find_decoder(id);
    Ff* s = new Ff;
    s->c = avcodec_alloc_context3(k);
    s->c->sample_rate = 8000;
    s->c->thread_count = 1;
    av_channel_layout_default(&s->c->ch_layout, 1);
    s->c->bits_per_coded_sample = bits;
    s->c->block_align = block;
    if (avcodec_open2(s->c, k, nullptr) < 0) {
        fprintf(stderr, "ffmpeg decoder %s: not opened\n", k->name);
        exit(1);
    }
    s->f = av_frame_alloc();
    s->p = av_packet_alloc();
    return s;
}
int ff_dec(void* v, const uint8_t* in, int bytes, int16_t* pcm)
{
    Ff* s = (Ff*)v;
    int blk = s->c->block_align > 1 ? s->c->block_align : bytes, out = 0;
    for (int i = 0; i < bytes; i += blk) {
        int b = bytes - i < blk ? bytes - i : blk;
        if (av_new_packet(s->p, b) < 0) exit(1);
        memcpy(s->p->data, in + i, b);
        if (avcodec_send_packet(s->c, s->p) < 0) {
            fprintf(stderr, "send_packet\n");
            exit(1);
        }
        while (avcodec_receive_frame(s->c, s->f) == 0) {
            memcpy(pcm + out, s->f->data[0], 2 * (size_t)s->f->nb_samples);
            out += s->f->nb_samples;
        }
        av_packet_unref(s->p);
    }
    return out;
}
template<int ID, int BITS, int BLOCK, int TRELLIS> void* ffe(int frame)
{
    return ff_eopen((AVCodecID)ID, BITS, BLOCK, TRELLIS, frame);
}
template<int ID, int BITS, int BLOCK> void* ffd(int) { return ff_dopen((AVCodecID)ID, BITS, BLOCK); }

// sox (libsox streams in memory; whole signals only)
struct Sx {
    sox_encoding_t enc;
    int bits;
    const char* type;
    std::vector<sox_sample_t> tmp;

    sox_encodinginfo_t encoding() const
    {
        sox_encodinginfo_t ei;
        memset(&ei, 0, sizeof ei);
        ei.encoding = enc;
        ei.bits_per_sample = bits;
        ei.compression = HUGE_VAL;
        return ei;
    }
};
void sx_start()
{
    static int on;
    if (!on) {
        sox_init();
        sox_globals.verbosity = 0;
        on = 1;
    }
}
template<int ENC, int BITS, int T> void* sx_open(int)
{
    static const char* types[] = {"raw", "ima"};
    sx_start();
    Sx* s = new Sx;
    s->enc = (sox_encoding_t)ENC;
    s->bits = BITS;
    s->type = types[T];
    return s;
}
void sx_close(void* v) { delete (Sx*)v; }
int sx_enc(void* v, const int16_t* p, int n, uint8_t* o)
{
    Sx* s = (Sx*)v;
    sox_signalinfo_t si = {8000, 1, 16, 0, nullptr};
    sox_encodinginfo_t ei = s->encoding();
    char* buf = nullptr;
    size_t len = 0;
    sox_format_t* f = sox_open_memstream_write(&buf, &len, &si, &ei, s->type, nullptr);
    if (!f) {
        fprintf(stderr, "sox write %s\n", s->type);
        exit(1);
    }
    s->tmp.resize(n);
    for (int i = 0; i < n; i++) s->tmp[i] = SOX_SIGNED_16BIT_TO_SAMPLE(p[i], );
    sox_write(f, s->tmp.data(), n);
    sox_close(f);
    memcpy(o, buf, len);
    free(buf);
    return (int)len;
}
int sx_dec(void* v, const uint8_t* in, int bytes, int16_t* pcm)
{
    Sx* s = (Sx*)v;
    sox_signalinfo_t si = {8000, 1, 0, 0, nullptr};
    sox_encodinginfo_t ei = s->encoding();
    sox_format_t* f = sox_open_mem_read((void*)in, bytes, &si, &ei, s->type);
    if (!f) {
        fprintf(stderr, "sox read %s\n", s->type);
        exit(1);
    }
    size_t want = (size_t)bytes * 8 / s->bits;
    s->tmp.resize(want);
    size_t got = sox_read(f, s->tmp.data(), want);
    unsigned clips = 0;
    SOX_SAMPLE_LOCALS;
    (void)clips;
    for (size_t i = 0; i < got; i++) pcm[i] = SOX_SAMPLE_TO_SIGNED_16BIT(s->tmp[i], clips);
    sox_close(f);
    return (int)got;
}
// A .au header in front of the codes: the only way into sox's decoder of this family.
template<int AUENC, int BITS> void* sxau_open(int)
{
    sx_start();
    Sx* s = new Sx;
    s->enc = (sox_encoding_t)AUENC;
    s->bits = BITS;
    s->type = "au";
    return s;
}
int sxau_dec(void* v, const uint8_t* in, int bytes, int16_t* pcm)
{
    Sx* s = (Sx*)v;
    std::vector<uint8_t> b(28 + bytes);
    uint32_t h[7] = {0x2e736e64u, 28, (uint32_t)bytes, (uint32_t)s->enc, 8000, 1, 0};
    for (int i = 0; i < 7; i++)
        for (int k = 0; k < 4; k++) b[4 * i + k] = (uint8_t)(h[i] >> (24 - 8 * k));
    memcpy(b.data() + 28, in, bytes);
    sox_format_t* f = sox_open_mem_read(b.data(), b.size(), nullptr, nullptr, "au");
    if (!f) {
        fprintf(stderr, "sox au %d not opened\n", (int)s->enc);
        return 0;
    }
    size_t want = (size_t)bytes * 8 / s->bits;
    s->tmp.resize(want);
    size_t got = sox_read(f, s->tmp.data(), want);
    unsigned clips = 0;
    SOX_SAMPLE_LOCALS;
    (void)clips;
    for (size_t i = 0; i < got; i++) pcm[i] = SOX_SAMPLE_TO_SIGNED_16BIT(s->tmp[i], clips);
    sox_close(f);
    return (int)got;
}

#define SP711(k, m)                                                                                          \
    {                                                                                                        \
        "spandsp", k, 0, 0, sp711_open<m>, sp711_enc, sp711_close, sp711_open<m>, sp711_dec, sp711_close     \
    }
#define SP726(k, r, p)                                                                                       \
    {                                                                                                        \
        "spandsp", k, 0, 0, sp726_open<r, p>, sp726_enc, sp726_close, sp726_open<r, p>, sp726_dec,           \
            sp726_close                                                                                      \
    }
#define SPIMA(k, v)                                                                                          \
    {                                                                                                        \
        "spandsp", k, 0, 0, spima_open<v>, spima_enc, spima_close, spima_open<v>, spima_dec, spima_close     \
    }
#define FF(k, id, b)                                                                                         \
    {                                                                                                        \
        "ffmpeg", k, 0, 0, ffe<id, b, 0, 0>, ff_enc, ff_close, ffd<id, b, 0>, ff_dec, ff_close               \
    }
#define FFB(nm, k, id, blk, fr, t)                                                                           \
    {                                                                                                        \
        nm, k, 0, fr, ffe<id, 0, blk, t>, ff_enc, ff_close, ffd<id, 4, blk>, ff_dec, ff_close                \
    }

const vd_codec codecs[] = {
    SP711("alaw", G711_ALAW),
    SP711("ulaw", G711_ULAW),
    FF("alaw", AV_CODEC_ID_PCM_ALAW, 0),
    FF("ulaw", AV_CODEC_ID_PCM_MULAW, 0),
    {"sox", "alaw", 1, 0, sx_open<SOX_ENCODING_ALAW, 8, 0>, sx_enc, sx_close,
     sx_open<SOX_ENCODING_ALAW, 8, 0>, sx_dec, sx_close},
    {"sox", "ulaw", 1, 0, sx_open<SOX_ENCODING_ULAW, 8, 0>, sx_enc, sx_close,
     sx_open<SOX_ENCODING_ULAW, 8, 0>, sx_dec, sx_close},
    SP726("g726-16", 16000, G726_PACKING_LEFT),
    SP726("g726-24", 24000, G726_PACKING_LEFT),
    SP726("g726-32", 32000, G726_PACKING_LEFT),
    SP726("g726-40", 40000, G726_PACKING_LEFT),
    SP726("g726-16r", 16000, G726_PACKING_RIGHT),
    SP726("g726-24r", 24000, G726_PACKING_RIGHT),
    SP726("g726-32r", 32000, G726_PACKING_RIGHT),
    SP726("g726-40r", 40000, G726_PACKING_RIGHT),
    FF("g726-16", AV_CODEC_ID_ADPCM_G726, 2),
    FF("g726-24", AV_CODEC_ID_ADPCM_G726, 3),
    FF("g726-32", AV_CODEC_ID_ADPCM_G726, 4),
    FF("g726-40", AV_CODEC_ID_ADPCM_G726, 5),
    FF("g726-16r", AV_CODEC_ID_ADPCM_G726LE, 2),
    FF("g726-24r", AV_CODEC_ID_ADPCM_G726LE, 3),
    FF("g726-32r", AV_CODEC_ID_ADPCM_G726LE, 4),
    FF("g726-40r", AV_CODEC_ID_ADPCM_G726LE, 5),
    {"sox", "g726-32r", 1, 0, nullptr, nullptr, nullptr, sxau_open<23, 4>, sxau_dec, sx_close},
    {"sox", "g726-24r", 1, 0, nullptr, nullptr, nullptr, sxau_open<25, 3>, sxau_dec, sx_close},
    {"sox", "g726-40r", 1, 0, nullptr, nullptr, nullptr, sxau_open<26, 5>, sxau_dec, sx_close},
    SPIMA("dvi4", IMA_ADPCM_DVI4),
    SPIMA("ima4", IMA_ADPCM_IMA4),
    FFB("ffmpeg", "ima-wav", AV_CODEC_ID_ADPCM_IMA_WAV, 256, 505, 0),
    FFB("ffmpeg-trellis3", "ima-wav", AV_CODEC_ID_ADPCM_IMA_WAV, 256, 505, 3),
    FFB("ffmpeg-trellis8", "ima-wav", AV_CODEC_ID_ADPCM_IMA_WAV, 256, 505, 8),
    {"sox", "ima-raw", 1, 0, sx_open<SOX_ENCODING_IMA_ADPCM, 4, 1>, sx_enc, sx_close,
     sx_open<SOX_ENCODING_IMA_ADPCM, 4, 1>, sx_dec, sx_close},
};

} // namespace

const vd_impl* zep::bench::peers_codec()
{
    static const vd_impl im = {codecs, (int)(sizeof codecs / sizeof *codecs), nullptr, 0, nullptr, 0, nullptr,
                               0};
    return &im;
}
