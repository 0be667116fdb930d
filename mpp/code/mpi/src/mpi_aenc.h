/**
 * Audio encoder channels: frames in, encoded frames out, 32 channels.
 *
 * A channel gets its frames from HI_MPI_AENC_SendFrame or, when an input channel is bound to it
 * (HI_MPI_SYS_Bind), takes them from there itself whenever an encoded frame is asked for and none waits. The
 * codec is looked up by payload type (mpi_codec_registry.h) when the channel is made.
 *
 * Operations return 0 or a coded error of HI_ID_AENC: MPP_ERR_CHANNEL for a channel above 31, MPP_ERR_NULL,
 * MPP_ERR_REFUSED before HI_MPI_SYS_Init and after HI_MPI_SYS_Exit, MPP_ERR_MISSING for a channel that was
 * not made, in this order, and what is said below. They may be called from several threads; one lock a
 * channel.
 */
#ifndef MPI_SRC_MPI_AENC_H
#define MPI_SRC_MPI_AENC_H

#include <stdint.h>

#include "base/mpp_audio.h"
#include "base/mpp_stream.h"

#ifdef __cplusplus
extern "C" {
#endif

#define AENC_DEVICE "/dev/aenc"

enum { AENC_MAX_CHN_NUM = 32, AENC_MIN_BUF_SIZE = 2, AENC_MAX_BUF_SIZE = 50 };

typedef struct {
    int32_t enType;      /* payload type, PT_* or one that was registered */
    uint32_t u32BufSize; /* encoded frames that may wait, AENC_MIN_BUF_SIZE to AENC_MAX_BUF_SIZE */
    void* pValue;        /* attribute of the codec (mpi/audio/audio_voice_adp.h); read during the call */
} AENC_CHN_ATTR_S;

/** What a channel has done since it was made. */
typedef struct {
    uint32_t u32Encoded; /* frames encoded and queued */
    uint32_t u32Handed;  /* of these, handed out */
    uint32_t u32Refused; /* frames refused because the queue was full */
    uint32_t u32Failed;  /* frames that the codec refused */
    uint32_t u32Waiting; /* frames in the queue now, one that is handed out included */
} AENC_CHN_STAT_S;

/**
 * Make a channel: opens its codec and allocates room for u32BufSize of the codec's longest frames.
 * @return also MPP_ERR_EXISTS; MPP_ERR_PARAM for a payload type that is not registered, a buffer size outside
 *         its bounds; MPP_ERR_NO_MEMORY; what the codec's open returns
 */
int32_t HI_MPI_AENC_CreateChn(int32_t s32Chn, const AENC_CHN_ATTR_S* pstAttr);

/**
 * Close a channel's codec and free its frames, the one that is handed out included. Callers that wait in
 * HI_MPI_AENC_GetStream return MPP_ERR_MISSING; one that waits for a bound input does so with the next frame
 * or the end of that input.
 * @return 0, or a code as said above
 */
int32_t HI_MPI_AENC_DestroyChn(int32_t s32Chn);

/**
 * Encode one frame and queue it. Does not wait.
 * @param pstFrm  stays the caller's
 * @return also MPP_ERR_FULL when the queue is full: the frame is not encoded, and counted as refused; what
 *         the codec returns
 */
int32_t HI_MPI_AENC_SendFrame(int32_t s32Chn, const AUDIO_FRAME_S* pstFrm);

/**
 * Hand out the oldest encoded frame. One is handed out at a time; it is given back with
 * HI_MPI_AENC_ReleaseStream and valid until then. While none waits and an input channel is bound, one frame
 * is taken from there and encoded. A binding that is made while a call waits for HI_MPI_AENC_SendFrame is
 * seen by the next call.
 *
 * @param pstStream  receives the frame's place, length, number and time stamp
 * @param bBlock     1 waits for a frame; 0: MPP_ERR_EMPTY when there is none
 * @return also MPP_ERR_PARAM for another bBlock; MPP_ERR_NOT_PERM while one is handed out; the codes of
 *         HI_MPI_AI_GetFrame and of the codec for a frame from a bound input
 */
int32_t HI_MPI_AENC_GetStream(int32_t s32Chn, AENC_STREAM_HEADER_S* pstStream, uint32_t bBlock);

/**
 * Give the frame back that is handed out.
 * @return also MPP_ERR_NOT_PERM when none is; MPP_ERR_PARAM for another frame
 */
int32_t HI_MPI_AENC_ReleaseStream(int32_t s32Chn, const AENC_STREAM_HEADER_S* pstStream);

/**
 * What a channel has done.
 * @param pstStat  receives the counts
 * @return 0, or a code as said above
 */
int32_t HI_MPI_AENC_GetChnStat(int32_t s32Chn, AENC_CHN_STAT_S* pstStat);

/**
 * Descriptor of "/dev/aenc", opened if need be, the same for all channels; it stays the library's. Frames are
 * encoded in this process, so it does not become ready with them: poll HI_MPI_AI_GetFd of the bound input.
 * @return it; MPP_ERR_REFUSED when it cannot be opened
 */
int32_t HI_MPI_AENC_GetFd(int32_t s32Chn);

#ifdef __cplusplus
}
#endif
#endif
