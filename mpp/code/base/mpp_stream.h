/** Encoded frames, as encoder channels hand them out and decoder channels take them. */
#ifndef MPP_BASE_MPP_STREAM_H
#define MPP_BASE_MPP_STREAM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * One encoded frame, or a piece of a stream of them. It owns nothing: the function that filled it says how
 * long its bytes are valid.
 */
typedef struct {
    uint8_t* pu8Data;      /* the encoded bytes, nothing before or behind them */
    uint32_t u32PhysAddr;  /* 0: encoding is done in the process, the bytes have no fixed address */
    uint32_t u32Len;       /* bytes */
    uint32_t u32Seq;       /* frames of the channel, counted from 0; wraps */
    uint64_t u64TimeStamp; /* of the frame that was encoded: its words 6 (low) and 7, microseconds */
} AENC_STREAM_HEADER_S;

#ifdef __cplusplus
}
#endif
#endif
