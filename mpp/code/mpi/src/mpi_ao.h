/**
 * Audio output: frames to devices 0 to 2, channels 0 to 15 each.
 *
 * Operations return 0, the driver's own result, or a coded error of HI_ID_AO: MPP_ERR_DEVICE for a device
 * above 2, MPP_ERR_CHANNEL for a channel above 15, MPP_ERR_NULL for a null record, MPP_ERR_REFUSED when the
 * device file is not a character device or cannot be opened; and what is said below. Refusals write a line on
 * standard error that names the operation. One lock a channel guards its resampling; operations may be called
 * from several threads.
 */
#ifndef MPI_SRC_MPI_AO_H
#define MPI_SRC_MPI_AO_H

#include <stdint.h>

#include "mpi/src/ao_uapi.h"
#include "mpi/src/mpi_aio.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Set the attributes of a device; before it is enabled.
 * @param pstAttr  handed to the driver as it is; stays the caller's
 * @return 0, or a code as said above; the driver checks the values
 */
int32_t HI_MPI_AO_SetPubAttr(int32_t s32Dev, const AIO_ATTR_S* pstAttr);
/**
 * Read the attributes of a device.
 * @param pstAttr  receives them
 * @return 0, or a code as said above; the driver refuses a device whose attributes were not set
 */
int32_t HI_MPI_AO_GetPubAttr(int32_t s32Dev, AIO_ATTR_S* pstAttr);
/** Start a device. @return 0, or a code as said above */
int32_t HI_MPI_AO_Enable(int32_t s32Dev);
/** Stop a device; what its channels have not played is dropped. @return 0, or a code as said above */
int32_t HI_MPI_AO_Disable(int32_t s32Dev);

/** Start a channel. @return 0, or a code as said above */
int32_t HI_MPI_AO_EnableChn(int32_t s32Dev, int32_t s32Chn);
/**
 * Stop a channel and its resampling. What it has not played is dropped, and a call that waits in
 * HI_MPI_AO_SendFrame returns with the driver's refusal.
 * @return 0, or a code as said above
 */
int32_t HI_MPI_AO_DisableChn(int32_t s32Dev, int32_t s32Chn);
/** Stop playing; frames are queued meanwhile. @return 0, or a code as said above */
int32_t HI_MPI_AO_PauseChn(int32_t s32Dev, int32_t s32Chn);
/** Play on after a pause. @return 0, or a code as said above */
int32_t HI_MPI_AO_ResumeChn(int32_t s32Dev, int32_t s32Chn);
/** Drop what is queued. @return 0, or a code as said above */
int32_t HI_MPI_AO_ClearChnBuf(int32_t s32Dev, int32_t s32Chn);

/**
 * Convert what is sent to a channel. The points and rate that come out must be those of the device, which
 * must be mono. Enabling again with the same attributes is 0.
 * @param pstAttr  stays the caller's
 * @return also MPP_ERR_NOT_PERM for other attributes than before; MPP_ERR_PARAM for attributes out of range
 *         or unlike the device's; MPP_ERR_NO_CONFIG for a device without attributes; MPP_ERR_NO_MEMORY
 */
int32_t HI_MPI_AO_EnableReSmp(int32_t s32Dev, int32_t s32Chn, const AIO_RESAMPLE_ATTR_S* pstAttr);
/**
 * Frames are sent as they are from now on.
 * @return 0, also when it was not enabled, or a code as said above
 */
int32_t HI_MPI_AO_DisableReSmp(int32_t s32Dev, int32_t s32Chn);

/**
 * Play one frame. The converted samples of a resampling channel lie on the calling thread's stack, 24 KiB.
 * @param pstFrm  stays the caller's; its samples are read during the call
 * @param bBlock  1 waits until the driver takes the frame; 0: MPP_ERR_FULL when it cannot take it now
 * @return also MPP_ERR_PARAM for another bBlock or a frame above 2048 points
 */
int32_t HI_MPI_AO_SendFrame(int32_t s32Dev, int32_t s32Chn, const AUDIO_FRAME_S* pstFrm, uint32_t bBlock);

/**
 * Descriptor to poll for output, opened if need be; it stays the library's.
 * @return it, or a code as said above
 */
int32_t HI_MPI_AO_GetFd(int32_t s32Dev, int32_t s32Chn);
/**
 * The same for a slot 0 to 47: device * 16 + channel.
 * @return as HI_MPI_AO_GetFd; MPP_ERR_CHANNEL above 47
 */
int32_t HI_MPI_AO_GetFileHandle(int32_t s32Slot);

/**
 * What the binder calls for each frame of a bound decoder; sends blocking. A data type other than
 * MPP_DATA_AUDIO_FRAME or null data is a failed assertion and ends the process.
 * @param pData  an AUDIO_FRAME_S
 * @return as HI_MPI_AO_SendFrame
 */
int32_t MPI_AO_ReceiveFrm(int32_t s32Dev, int32_t s32Chn, int32_t enDataType, void* pData);

#ifdef __cplusplus
}
#endif
#endif
