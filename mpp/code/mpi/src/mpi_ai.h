/**
 * Audio input: frames from devices 0 to 2, channels 0 to 15 each.
 *
 * A channel has three optional stages: noise reduction, resampling, delivery of the echo reference.
 *
 * Operations return 0, the driver's own result, or a coded error of HI_ID_AI: MPP_ERR_DEVICE for a device
 * above 2, MPP_ERR_CHANNEL for a channel above 15, MPP_ERR_NULL for a null record, MPP_ERR_REFUSED when the
 * device file cannot be opened; and what is said below. Refusals write a line on standard error that names
 * the operation. One lock a channel guards its stages; operations may be called from several threads.
 */
#ifndef MPI_SRC_MPI_AI_H
#define MPI_SRC_MPI_AI_H

#include <stdint.h>

#include "mpi/src/ai_uapi.h"
#include "mpi/src/mpi_aio.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Set the attributes of a device; before it is enabled.
 * @param pstAttr  handed to the driver as it is; stays the caller's
 * @return 0, or a code as said above; the driver checks the values
 */
int32_t HI_MPI_AI_SetPubAttr(int32_t s32Dev, const AIO_ATTR_S* pstAttr);
/**
 * Read the attributes of a device.
 * @param pstAttr  receives them
 * @return 0, or a code as said above; the driver refuses a device whose attributes were not set
 */
int32_t HI_MPI_AI_GetPubAttr(int32_t s32Dev, AIO_ATTR_S* pstAttr);

/**
 * Start a device and map its buffer pool into the process.
 * @return 0, or a code as said above; the codes of HI_MPI_VB_MmapPool, the device is started then
 */
int32_t HI_MPI_AI_Enable(int32_t s32Dev);
/**
 * Unmap the device's buffer pool, then stop the device.
 * @return 0, or a code as said above; the codes of HI_MPI_VB_MunmapPool, MPP_ERR_BUSY among them while a
 *         frame is out: the device runs on then
 */
int32_t HI_MPI_AI_Disable(int32_t s32Dev);

/** Start a channel. @return 0, or a code as said above */
int32_t HI_MPI_AI_EnableChn(int32_t s32Dev, int32_t s32Chn);
/** Stop a channel and its resampling; noise reduction stays as it is. @return 0, or a code as said above */
int32_t HI_MPI_AI_DisableChn(int32_t s32Dev, int32_t s32Chn);

/**
 * Convert a channel's rate. Input points and rate must be those of the device, which must be mono. Enabling
 * again with the same attributes is 0.
 * @param pstAttr  stays the caller's
 * @return also MPP_ERR_NOT_PERM for other attributes than before; MPP_ERR_PARAM for attributes out of range
 *         or unlike the device's; MPP_ERR_NO_CONFIG for a device without attributes; MPP_ERR_NO_MEMORY
 */
int32_t HI_MPI_AI_EnableReSmp(int32_t s32Dev, int32_t s32Chn, const AIO_RESAMPLE_ATTR_S* pstAttr);
/**
 * Frames keep the device's rate from now on.
 * @return 0, also when it was not enabled, or a code as said above
 */
int32_t HI_MPI_AI_DisableReSmp(int32_t s32Dev, int32_t s32Chn);

/**
 * Reduce a channel's noise, in place: mono, 80 or 160 points a frame, 8 or 16 kHz. 8-bit frames become
 * 16-bit. Enabling again is 0.
 * @return also MPP_ERR_NO_CONFIG for a device without attributes; MPP_ERR_PARAM for other attributes;
 *         MPP_ERR_NO_MEMORY
 */
int32_t HI_MPI_AI_EnableAnr(int32_t s32Dev, int32_t s32Chn);
/** Stop the reduction and free its state. @return 0, also when it was not enabled, or a code as said above */
int32_t HI_MPI_AI_DisableAnr(int32_t s32Dev, int32_t s32Chn);

/**
 * Have the driver deliver with each frame what an output channel played in its time. The canceller itself
 * (mpi/audio/aec.h) is run by the caller.
 * @return also MPP_ERR_DEVICE and MPP_ERR_CHANNEL of HI_ID_AO
 */
int32_t HI_MPI_AI_EnableAec(int32_t s32AiDev, int32_t s32AiChn, int32_t s32AoDev, int32_t s32AoChn);
/** Stop delivering the reference. @return 0, or a code as said above */
int32_t HI_MPI_AI_DisableAec(int32_t s32Dev, int32_t s32Chn);

/**
 * Take one frame; to be given back with HI_MPI_AI_ReleaseFrame.
 * @param pstFrm    receives the frame; its samples stay valid until the release
 * @param pstAec    null, or receives the echo reference; left alone when there is none, as with resampling
 * @param bBlock    1 waits for a frame; 0: MPP_ERR_EMPTY when there is none
 * @return also MPP_ERR_PARAM for another bBlock, a frame outside its pool, or a stereo frame on a channel
 *         with resampling or noise reduction; MPP_ERR_NO_MEMORY; the codes of HI_MPI_VB_GetBlkVirAddr. After
 *         a code the frame has gone back to the driver.
 */
int32_t HI_MPI_AI_GetFrame(int32_t s32Dev, int32_t s32Chn, AUDIO_FRAME_S* pstFrm, AEC_FRAME_S* pstAec,
                           uint32_t bBlock);
/**
 * Give a frame back.
 * @param pstFrm  as HI_MPI_AI_GetFrame filled it; a converted frame's samples are freed and its address
 *                cleared
 * @param pstAec  the echo reference that came with it, or null
 * @return 0, or a code as said above
 */
int32_t HI_MPI_AI_ReleaseFrame(int32_t s32Dev, int32_t s32Chn, AUDIO_FRAME_S* pstFrm, AEC_FRAME_S* pstAec);

/**
 * Set the parameters of a channel, handed to the driver as they are. The channel's descriptor must be open
 * already, by any other operation of the channel.
 * @return also MPP_ERR_REFUSED when it is not
 */
int32_t HI_MPI_AI_SetChnParam(int32_t s32Dev, int32_t s32Chn, const AI_CHN_PARAM_S* pstParam);
/** Read them. @return as HI_MPI_AI_SetChnParam */
int32_t HI_MPI_AI_GetChnParam(int32_t s32Dev, int32_t s32Chn, AI_CHN_PARAM_S* pstParam);

/**
 * Descriptor to poll for input, opened if need be; it stays the library's.
 * @return it, or a code as said above
 */
int32_t HI_MPI_AI_GetFd(int32_t s32Dev, int32_t s32Chn);
/** The same for a slot 0 to 15, a channel of device 0. @return as HI_MPI_AI_GetFd */
int32_t HI_MPI_AI_GetFileHandle(int32_t s32Slot);

#ifdef __cplusplus
}
#endif
#endif
