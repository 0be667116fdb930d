/**
 * Audio input: frames from devices 0 to 2, channels 0 to 15 each.
 *
 * Three optional stages a channel: noise reduction, resampling, hand-over of the echo reference. Operations
 * return 0, the driver's result or a coded error of HI_ID_AI: MPP_ERR_DEVICE, MPP_ERR_CHANNEL, MPP_ERR_NULL
 * for what is out of range or missing, MPP_ERR_REFUSED when the device cannot be opened, and what is said
 * below; each has a line on standard error that names the operation. One lock a channel guards its stages;
 * operations may be called from several threads.
 */
#ifndef MPI_SRC_MPI_AI_H
#define MPI_SRC_MPI_AI_H

#include <stdint.h>

#include "mpi/src/ai_uapi.h"
#include "mpi/src/mpi_aio.h"

#ifdef __cplusplus
extern "C" {
#endif

int32_t HI_MPI_AI_SetPubAttr(int32_t s32Dev, const AIO_ATTR_S* pstAttr);
int32_t HI_MPI_AI_GetPubAttr(int32_t s32Dev, AIO_ATTR_S* pstAttr);

/** Start a device and map its buffer pool, or unmap the pool and stop. */
int32_t HI_MPI_AI_Enable(int32_t s32Dev);
int32_t HI_MPI_AI_Disable(int32_t s32Dev);

/** Start or stop a channel. Stopping ends its resampling; noise reduction stays as it is. */
int32_t HI_MPI_AI_EnableChn(int32_t s32Dev, int32_t s32Chn);
int32_t HI_MPI_AI_DisableChn(int32_t s32Dev, int32_t s32Chn);

/**
 * Convert a channel's rate. Input points and rate must be those of the device, which must be mono. Enabling
 * again with the same attributes is 0.
 * @return also MPP_ERR_NOT_PERM for other attributes than before, MPP_ERR_PARAM, MPP_ERR_NO_CONFIG for a
 * device without attributes, MPP_ERR_NO_MEMORY
 */
int32_t HI_MPI_AI_EnableReSmp(int32_t s32Dev, int32_t s32Chn, const AIO_RESAMPLE_ATTR_S* pstAttr);
int32_t HI_MPI_AI_DisableReSmp(int32_t s32Dev, int32_t s32Chn);

/**
 * Reduce a channel's noise, in place: mono, 80 or 160 points a frame, 8 or 16 kHz. 8-bit frames become
 * 16-bit.
 * @return also MPP_ERR_NO_CONFIG, MPP_ERR_PARAM, MPP_ERR_NO_MEMORY
 */
int32_t HI_MPI_AI_EnableAnr(int32_t s32Dev, int32_t s32Chn);
int32_t HI_MPI_AI_DisableAnr(int32_t s32Dev, int32_t s32Chn);

/**
 * Have the driver deliver what an output channel plays beside each frame. The canceller itself is the
 * caller's.
 * @return also MPP_ERR_DEVICE and MPP_ERR_CHANNEL of HI_ID_AO
 */
int32_t HI_MPI_AI_EnableAec(int32_t s32AiDev, int32_t s32AiChn, int32_t s32AoDev, int32_t s32AoChn);
int32_t HI_MPI_AI_DisableAec(int32_t s32Dev, int32_t s32Chn);

/**
 * Take one frame; to be given back with HI_MPI_AI_ReleaseFrame.
 * @param pstFrm    receives the frame; its samples stay valid until the release
 * @param pstAec    null, or receives the echo reference when there is one and is else left alone
 * @param bBlock    1 waits for a frame; 0: MPP_ERR_EMPTY when there is none
 * @return also MPP_ERR_PARAM for another bBlock, a frame outside its pool, or a stereo frame on a channel
 * with resampling or noise reduction; MPP_ERR_NO_MEMORY; the codes of the buffer pools
 */
int32_t HI_MPI_AI_GetFrame(int32_t s32Dev, int32_t s32Chn, AUDIO_FRAME_S* pstFrm, AEC_FRAME_S* pstAec,
                           uint32_t bBlock);
/** Give a frame back, with the echo reference that came with it or null. */
int32_t HI_MPI_AI_ReleaseFrame(int32_t s32Dev, int32_t s32Chn, AUDIO_FRAME_S* pstFrm, AEC_FRAME_S* pstAec);

/** The channel's descriptor must be open: @return MPP_ERR_REFUSED when it is not */
int32_t HI_MPI_AI_SetChnParam(int32_t s32Dev, int32_t s32Chn, const AI_CHN_PARAM_S* pstParam);
int32_t HI_MPI_AI_GetChnParam(int32_t s32Dev, int32_t s32Chn, AI_CHN_PARAM_S* pstParam);

/** Descriptor to poll, opened if need be; it stays the library's. @return it, or a code */
int32_t HI_MPI_AI_GetFd(int32_t s32Dev, int32_t s32Chn);
/** The same for a bare slot of device 0. */
int32_t HI_MPI_AI_GetFileHandle(int32_t s32Slot);

#ifdef __cplusplus
}
#endif
#endif
