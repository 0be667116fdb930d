/**
 * G.711: pulse code modulation of voice, A-law and mu-law, one octet a sample.
 *
 * Encoder and decoder equal Recommendation ITU-T G.711 for every 16-bit sample and every octet: samples are
 * left-justified in 16 bits (13 bits used by A-law, 14 by mu-law), a negative sample takes its one's
 * complement as magnitude, the even bits of A-law octets are inverted, mu-law octets are inverted whole.
 *
 * All functions only compute: no state but the caller's, no allocation, safe from any thread.
 */
#ifndef MPP_MPI_AUDIO_G711_H
#define MPP_MPI_AUDIO_G711_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Octet to sample, A-law and mu-law. */
extern const int16_t a2l_table[256];
extern const int16_t u2l_table[256];

/**
 * Octet to octet of the other law, by the Recommendation's own conversion tables. They differ from decoding
 * and encoding again in a few values, so that mu-A-mu and A-mu-A change no more than the last bit.
 */
extern const uint8_t a2u_table[256];
extern const uint8_t u2a_table[256];

/**
 * Code `points` samples into as many octets.
 *
 * @param pcm     samples, any alignment that int16_t allows
 * @param octets  room for `points` octets; may not overlap pcm
 */
void G711_EncodeA(const int16_t* pcm, uint8_t* octets, size_t points);
void G711_EncodeU(const int16_t* pcm, uint8_t* octets, size_t points);

/** Decode `points` octets into as many samples; every octet value is valid. The blocks may not overlap. */
void G711_DecodeA(const uint8_t* octets, int16_t* pcm, size_t points);
void G711_DecodeU(const uint8_t* octets, int16_t* pcm, size_t points);

enum { G711_A_LAW = 0, G711_MU_LAW = 1 };

/** A stream of one law; two words, as the media platform's handles carry them. */
typedef struct {
    uint32_t u32Law;      /* G711_A_LAW or G711_MU_LAW */
    uint32_t u32Reserved; /* 0 */
} G711_STATE_S;

/**
 * Choose a law for a stream. The state is plain data and is never changed again; encoder and decoder may share it.
 *
 * @param state  the caller's
 * @param law    G711_MU_LAW; every other value stands for A-law
 */
void G711_Init(G711_STATE_S* state, uint32_t law);

/** G711_EncodeA or G711_EncodeU, G711_DecodeA or G711_DecodeU, by the state's law. */
void G711_Encode(const G711_STATE_S* state, const int16_t* pcm, uint8_t* octets, size_t points);
void G711_Decode(const G711_STATE_S* state, const uint8_t* octets, int16_t* pcm, size_t points);

#ifdef __cplusplus
}
#endif
#endif
