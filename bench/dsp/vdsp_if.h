/**
 * What the measuring programs measure: everything works on frames of 16-bit mono samples.
 *
 * An implementation is a shared object that exports `const vd_impl* vd_impl_get(void)`; each program takes
 * any number of them with --impl and prints their rows beside those of the peers it is built with.
 */
#ifndef BENCH_DSP_VDSP_IF_H
#define BENCH_DSP_VDSP_IF_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Speech codec. Kinds: "alaw" "ulaw" "g726-16" "g726-24" "g726-32" "g726-40" (most significant bit first) and
 * the same with "r" (codes packed from the least significant bit), "dvi4" "ima4" "ima-wav" "ima-raw". A state
 * is opened for a frame: the samples that a call will carry (0: any number).
 */
typedef struct vd_codec {
    const char* name; /* who */
    const char* kind; /* what */
    int whole;        /* 1: only whole signals in one call (stream libraries) */
    int frame;        /* frame length that the format forces, 0 = any */
    void* (*enc_open)(int frame);
    int (*enc)(void* st, const int16_t* pcm, int n, uint8_t* out); /* -> bytes */
    void (*enc_close)(void* st);
    void* (*dec_open)(int frame);
    int (*dec)(void* st, const uint8_t* in, int bytes, int16_t* pcm); /* -> samples */
    void (*dec_close)(void* st);
} vd_codec;

/** Fixed-ratio resampler: n points in give exactly n * out_rate / in_rate points out on every call. */
typedef struct vd_resampler {
    const char* name;
    void* (*open)(int in_rate, int out_rate, int in_points);
    int (*process)(void* st, const int16_t* in, int n, int16_t* out); /* -> points out */
    void (*close)(void* st);
} vd_resampler;

/** Noise reducer, in place, n samples a call. */
typedef struct vd_ns {
    const char* name;
    void* (*open)(int rate, int points);
    int (*process)(void* st, int16_t* io, int n);
    void (*close)(void* st);
} vd_ns;

/** Echo canceller: ref is what the loudspeaker plays in this frame, mic what came in with it. */
typedef struct vd_aec {
    const char* name;
    void* (*open)(int rate, int points, int tail_ms);
    int (*process)(void* st, const int16_t* mic, const int16_t* ref, int16_t* out, int n);
    void (*close)(void* st);
} vd_aec;

typedef struct vd_impl {
    const vd_codec* codecs;
    int ncodecs;
    const vd_resampler* resamplers;
    int nresamplers;
    const vd_ns* ns;
    int nns;
    const vd_aec* aec;
    int naec;
} vd_impl;

const vd_impl* vd_impl_get(void);

#ifdef __cplusplus
}
#endif
#endif
