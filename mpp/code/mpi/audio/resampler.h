/**
 * Fixed-ratio resamplers: up and down by 2, 4 and 6, mono, 16 bits.
 *
 * `low` below is the lower of the two rates. For what lies between 0 and 0.45 low: gain 1 within 0.0005 dB
 * and exactly 1 at 0 Hz, linear phase, images and aliases at least 97 dB down, to which a 16-bit
 * output adds its rounding noise. The gain at low/2 is one half. Samples that exceed 16 bits are limited.
 * Going up, the last of every 2, 4 or 6 output points is an input point unchanged.
 *
 *   kind        delay in periods of low     at low = 8 kHz
 *   up by 2     31.5                        3.94 ms
 *   up by 4     31.75                       3.97 ms
 *   up by 6     31.83                       3.98 ms
 *   down by 2   31                          3.88 ms
 *   down by 4   32                          4 ms
 *   down by 6   31.67                       3.96 ms
 *
 * A signal gives the same output however it is cut into frames, as long as frames that go down are whole
 * multiples of the ratio. Of any other frame the last points, too few for an output point, are left out.
 *
 * Integer arithmetic only: the result is the same on every machine. The process functions neither allocate
 * nor wait; one resampler may be used by one thread at a time, different ones by different threads.
 */
#ifndef MPP_MPI_AUDIO_RESAMPLER_H
#define MPP_MPI_AUDIO_RESAMPLER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define RESAMPLER_MAX_POINTS 2048 /* input points a frame */

/** Kinds, numbered as in the resampling attributes of audio input and output. */
typedef enum RESAMPLER_KIND_E {
    RESAMPLER_1X2 = 1, /* up by 2 */
    RESAMPLER_2X1 = 2, /* down by 2 */
    RESAMPLER_1X4 = 3,
    RESAMPLER_4X1 = 4,
    RESAMPLER_1X6 = 5,
    RESAMPLER_6X1 = 6
} RESAMPLER_KIND_E;

typedef struct RESAMPLER_S RESAMPLER_S;

/**
 * Open a resampler, its history all zero.
 *
 * @param kind     RESAMPLER_KIND_E
 * @param in_rate  input rate in Hz, 8000..48000; the filters scale with it
 * @return the resampler, to be freed with ResamplerDestroy; NULL for a kind or a rate outside its range, or
 * when memory is short
 */
RESAMPLER_S* ResamplerCreate(int kind, int in_rate);

/** Forget the history: the next frame begins a new signal; NULL is ignored. */
void ResamplerReset(RESAMPLER_S* resampler);

/** Free a resampler; NULL is allowed. */
void ResamplerDestroy(RESAMPLER_S* resampler);

/** Output points of a frame of `points` input points: times or divided by the ratio, rounded down; -1 for a
 * bad kind. */
int ResamplerOutPoints(int kind, int points);

/**
 * Convert one frame.
 *
 * @param resampler  opened for this kind
 * @param in         `points` samples
 * @param points     0..RESAMPLER_MAX_POINTS
 * @param out        room for ResamplerOutPoints(kind, points) samples; may not overlap in
 * @return points written; -1, with nothing written, for a null pointer, a resampler of another kind or a
 *         number of points outside the range
 */
int ResamplerMono1X2Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out);
int ResamplerMono2X1Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out);
int ResamplerMono1X4Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out);
int ResamplerMono4X1Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out);
int ResamplerMono1X6Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out);
int ResamplerMono6X1Process(RESAMPLER_S* resampler, const int16_t* in, int points, int16_t* out);

#ifdef __cplusplus
}
#endif
#endif
