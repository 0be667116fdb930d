/**
 * IMA/DVI4 ADPCM: 4 bits a sample, in the two usual frame forms.
 *
 * Every frame starts with the decoder's state, so that it decodes by itself and a lost or damaged one costs
 * nothing but itself.
 *
 *   ADPCM_DVI4       RFC 3551, 4.5.1: predictor before the first sample (2 octets, most significant first), step
 *                    index, 0; then two samples an octet, the first in the upper nibble. An even number of points.
 *   ADPCM_IMA_BLOCK  block of a WAV file: the first sample itself (2 octets, least significant first), step index, 0;
 *                    then two samples an octet, the first in the lower nibble. An odd number of points.
 *
 * Predictor, index and code follow the IMA's recommended practice, with its truncating shifts, for every
 * sample. The state belongs to the caller; nothing is allocated; calls on different states are independent.
 */
#ifndef MPP_MPI_AUDIO_ADPCM_H
#define MPP_MPI_AUDIO_ADPCM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { ADPCM_DVI4 = 0, ADPCM_IMA_BLOCK = 1, ADPCM_HEADER_BYTES = 4 };

typedef struct {
    int16_t s16Predictor; /* last reconstructed sample */
    uint8_t u8Index;      /* step index, 0 to 88 */
    uint8_t u8Format;     /* ADPCM_DVI4 or ADPCM_IMA_BLOCK */
} ADPCM_STATE_S;

/**
 * Start a stream: predictor and step index 0.
 *
 * @param format  ADPCM_DVI4 or ADPCM_IMA_BLOCK
 * @return 0; -1 for another format, the state is then left alone
 */
int ADPCM_Init(ADPCM_STATE_S* state, uint32_t format);

/** Octets of a frame of `points` samples; 0 when the format cannot carry that number (0, odd or even). */
size_t ADPCM_FrameBytes(uint32_t format, size_t points);

/** Samples in a frame of `bytes` octets; 0 when it is too short for its header. */
size_t ADPCM_FramePoints(uint32_t format, size_t bytes);

/**
 * Code one frame.
 *
 * @param octets  room for ADPCM_FrameBytes(format, points)
 * @return octets written; 0 when the format cannot carry `points`: nothing is then done
 */
size_t ADPCM_Encode(ADPCM_STATE_S* state, const int16_t* pcm, size_t points, uint8_t* octets);

/**
 * Decode one frame, all of `bytes`.
 *
 * @param pcm  room for ADPCM_FramePoints(format, bytes) samples
 * @return samples written; 0 when the frame is too short or its step index is above 88: nothing is then done
 */
size_t ADPCM_Decode(ADPCM_STATE_S* state, const uint8_t* octets, size_t bytes, int16_t* pcm);

#ifdef __cplusplus
}
#endif
#endif
