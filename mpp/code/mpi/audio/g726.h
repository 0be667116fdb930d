/**
 * G.726: adaptive differential pulse code modulation at 16, 24, 32 and 40 kbit/s (2, 3, 4 and 5 bits a sample
 * at 8 kHz).
 *
 * Bit-exact to Recommendation ITU-T G.726 with the uniform PCM interface of its Annex A: the upper 14 bits of
 * a 16-bit sample are coded, and the decoder's output is limited to 14 bits (LIMO), so that an overflow
 * saturates.
 *
 * The state belongs to the caller and is plain data: copy it to fork a stream. Encoder and decoder each need
 * one. Nothing is allocated; calls on different states are independent.
 */
#ifndef MPP_MPI_AUDIO_G726_H
#define MPP_MPI_AUDIO_G726_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** How codes lie in octets. */
enum {
    G726_PACK_RFC3551 = 0, /* first code in the least significant bits */
    G726_PACK_AAL2 = 1     /* first code in the most significant bits, as in I.366.2 */
};

/** Variables of the Recommendation, in its own formats (its names in brackets). */
typedef struct {
    int32_t s32Yl;  /* slow scale factor, 6 more fraction bits than s16Yu (YL) */
    int16_t s16Yu;  /* fast scale factor (YU) */
    int16_t s16Dms; /* short and long term mean of F(I) (DMS, DML) */
    int16_t s16Dml;
    int16_t s16Ap;     /* speed control before limiting (AP) */
    int16_t as16A[2];  /* pole coefficients (A1, A2) */
    int16_t as16B[6];  /* zero coefficients (B1 to B6) */
    int16_t as16Sr[2]; /* reconstructed signal, sign, 4-bit exponent, 6-bit mantissa (SR1, SR2) */
    int16_t as16Dq[6]; /* quantized difference, same format (DQ1 to DQ6) */
    uint8_t au8Pk[2];  /* signs of the partially reconstructed signal (PK1, PK2) */
    uint8_t u8Td;      /* tone detected (TD) */
    uint8_t u8Bits;    /* bits of a code: 2 to 5 */
    uint8_t u8Packing; /* G726_PACK_* */
} G726_STATE_S;

/**
 * Set a state to the Recommendation's reset values.
 *
 * @param bits     2, 3, 4 or 5 for 16, 24, 32 or 40 kbit/s
 * @param packing  G726_PACK_*
 * @return 0; -1 for another value, the state is then left alone
 */
int G726_Init(G726_STATE_S* state, uint32_t bits, uint32_t packing);

/**
 * Code a frame. Frames may have any length whose codes are whole octets (multiples of 8 always are); the
 * stream does not depend on how it is cut into frames.
 *
 * @param octets  room for points * bits / 8 octets
 * @return octets written; 0 when the codes are no whole octets: nothing is then done
 */
size_t G726_Encode(G726_STATE_S* state, const int16_t* pcm, size_t points, uint8_t* octets);

/**
 * Decode the whole groups at the head of `bytes` octets: 1 octet (2 and 4 bits), 3 octets (3 bits) or 5
 * octets (5 bits). Any octets are valid. What is left behind the last whole group is ignored.
 *
 * @param pcm  room for bytes * 8 / bits samples
 * @return samples written
 */
size_t G726_Decode(G726_STATE_S* state, const uint8_t* octets, size_t bytes, int16_t* pcm);

#ifdef __cplusplus
}
#endif
#endif
