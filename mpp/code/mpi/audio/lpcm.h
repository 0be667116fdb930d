/**
 * Linear PCM as it stands in a stream: 16-bit little-endian samples, left before right when there are two
 * channels. Plain functions, safe from any thread; the blocks may not overlap.
 */
#ifndef MPP_MPI_AUDIO_LPCM_H
#define MPP_MPI_AUDIO_LPCM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @param right   second channel, or NULL for one channel
 * @param points  samples of each channel
 * @param octets  room for 2 octets a sample
 */
void LPCM_Encode(const int16_t* left, const int16_t* right, size_t points, uint8_t* octets);

/**
 * Decode a stream, interleaved as it stands.
 *
 * @param octets   2 * samples octets, any alignment
 * @param samples  of all channels together
 * @param pcm      room for as many samples
 */
void LPCM_Decode(const uint8_t* octets, size_t samples, int16_t* pcm);

#ifdef __cplusplus
}
#endif
#endif
