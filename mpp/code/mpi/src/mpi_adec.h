/**
 * Audio decoder channels: encoded bytes in, frames to what is bound to the channel, 32 channels.
 *
 * Decoding is done by the thread that sends, and its frames go to the bound channels (HI_MPI_SYS_Bind with a
 * source of HI_ID_ADEC) before the call returns; without a binding they are dropped. The codec is looked up
 * by payload type (mpi_codec_registry.h) when the channel is made.
 *
 * Operations return 0 or a coded error of HI_ID_ADEC: MPP_ERR_CHANNEL for a channel above 31, MPP_ERR_NULL,
 * MPP_ERR_REFUSED before HI_MPI_SYS_Init and after HI_MPI_SYS_Exit, MPP_ERR_MISSING for a channel that was
 * not made, in this order, and what is said below. They may be called from several threads; a channel's
 * callers take turns. As with the binder, no channel may be unbound while it sends.
 */
#ifndef MPI_SRC_MPI_ADEC_H
#define MPI_SRC_MPI_ADEC_H

#include <stdint.h>

#include "base/mpp_stream.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ADEC_DEVICE "/dev/adec"

enum {
    ADEC_MAX_CHN_NUM = 32,
    ADEC_MIN_BUF_SIZE = 2,
    ADEC_MAX_BUF_SIZE = 50,
    ADEC_STREAM_POINTS = 320,      /* points of a frame in stream mode, at least one frame of the codec */
    ADEC_MAX_STREAM_LEN = 0x100000 /* most bytes of one call */
};

typedef enum {
    ADEC_MODE_PACK = 0,  /* each call brings whole frames; exactly one of a codec that cannot tell where its
                            frames end (ADPCM without a number of points in its attribute) */
    ADEC_MODE_STREAM = 1 /* bytes come in pieces of any size; an incomplete frame is kept */
} ADEC_MODE_E;

typedef struct {
    int32_t enType;      /* payload type, PT_* or one that was registered */
    uint32_t u32BufSize; /* ADEC_MIN_BUF_SIZE to ADEC_MAX_BUF_SIZE; checked only, a channel queues nothing */
    uint32_t enMode;     /* ADEC_MODE_* */
    void* pValue;        /* attribute of the codec (mpi/audio/audio_voice_adp.h); read during the call */
} ADEC_CHN_ATTR_S;

/** What a channel has done since it was made. */
typedef struct {
    uint32_t u32Frames;  /* frames decoded and sent to what is bound */
    uint32_t u32Damaged; /* pieces of input that could not be decoded */
    uint32_t u32Kept;    /* bytes kept until a frame is whole */
    uint32_t u32Unheard; /* frames, of u32Frames, that no receiver took: none is bound, or each refused it */
    uint64_t u64Bytes;   /* bytes taken */
} ADEC_CHN_STAT_S;

/**
 * Make a channel and open its codec.
 * @return also MPP_ERR_EXISTS; MPP_ERR_PARAM for a payload type that is not registered, a buffer size or mode
 *         outside its bounds, stream mode with a codec that cannot tell where its frames end;
 *         MPP_ERR_NO_MEMORY; what the codec's open returns
 */
int32_t HI_MPI_ADEC_CreateChn(int32_t s32Chn, const ADEC_CHN_ATTR_S* pstAttr);

/**
 * Close a channel. Waits for the caller that is decoding; callers that wait return MPP_ERR_MISSING.
 * @return 0, or a code as said above
 */
int32_t HI_MPI_ADEC_DestroyChn(int32_t s32Chn);

/**
 * Decode, and send the frames to what is bound. A receiver waits until its driver takes a frame, so this call
 * does too. A damaged frame is skipped and counted; the data behind it is still decoded. A frame that every
 * receiver refuses is no failure of this call: HI_MPI_ADEC_GetChnStat counts it in u32Unheard.
 *
 * @param pstStream  address and length are used; a length of 0 in stream mode plays what is kept
 * @param bBlock     1 waits for another caller of the channel; 0: MPP_ERR_FULL while there is one
 * @return also MPP_ERR_PARAM for another bBlock or a length outside its bounds; the codec's code for the
 *         first damaged frame; the binder's code
 */
int32_t HI_MPI_ADEC_SendStream(int32_t s32Chn, const AENC_STREAM_HEADER_S* pstStream, uint32_t bBlock);

/**
 * Drop the bytes that stream mode has kept. Waits for the caller that is decoding.
 * @return 0, or a code as said above
 */
int32_t HI_MPI_ADEC_ClearChnBuf(int32_t s32Chn);

/**
 * What a channel has done. Waits for the caller that is decoding, so that the counts belong to whole calls.
 * @param pstStat  receives the counts
 * @return 0, or a code as said above
 */
int32_t HI_MPI_ADEC_GetChnStat(int32_t s32Chn, ADEC_CHN_STAT_S* pstStat);

/**
 * Descriptor of "/dev/adec", opened if need be, the same for all channels; it stays the library's.
 * @return it; MPP_ERR_REFUSED when it cannot be opened
 */
int32_t HI_MPI_ADEC_GetFd(int32_t s32Chn);

#ifdef __cplusplus
}
#endif
#endif
