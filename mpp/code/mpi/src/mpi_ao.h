/**
 * Audio output: frames to devices 0 to 2, channels 0 to 15 each.
 *
 * Operations return 0, the driver's result or a coded error of HI_ID_AO: MPP_ERR_DEVICE, MPP_ERR_CHANNEL,
 * MPP_ERR_NULL for what is out of range or missing, MPP_ERR_REFUSED when the device cannot be opened, and
 * what is said below; each has a line on standard error that names the operation. One lock a channel guards
 * its resampling; operations may be called from several threads.
 */
#ifndef MPI_SRC_MPI_AO_H
#define MPI_SRC_MPI_AO_H

#include <stdint.h>

#include "mpi/src/ao_uapi.h"
#include "mpi/src/mpi_aio.h"

#ifdef __cplusplus
extern "C" {
#endif

int32_t HI_MPI_AO_SetPubAttr(int32_t s32Dev, const AIO_ATTR_S* pstAttr);
int32_t HI_MPI_AO_GetPubAttr(int32_t s32Dev, AIO_ATTR_S* pstAttr);
int32_t HI_MPI_AO_Enable(int32_t s32Dev);
int32_t HI_MPI_AO_Disable(int32_t s32Dev);

int32_t HI_MPI_AO_EnableChn(int32_t s32Dev, int32_t s32Chn);
/** Ends the channel's resampling too. */
int32_t HI_MPI_AO_DisableChn(int32_t s32Dev, int32_t s32Chn);
int32_t HI_MPI_AO_PauseChn(int32_t s32Dev, int32_t s32Chn);
int32_t HI_MPI_AO_ResumeChn(int32_t s32Dev, int32_t s32Chn);
int32_t HI_MPI_AO_ClearChnBuf(int32_t s32Dev, int32_t s32Chn);

/**
 * Convert what is sent to a channel. The points and rate that come out must be those of the device, which
 * must be mono. Enabling again with the same attributes is 0.
 * @return also MPP_ERR_NOT_PERM for other attributes than before, MPP_ERR_PARAM, MPP_ERR_NO_CONFIG for a
 * device without attributes, MPP_ERR_NO_MEMORY
 */
int32_t HI_MPI_AO_EnableReSmp(int32_t s32Dev, int32_t s32Chn, const AIO_RESAMPLE_ATTR_S* pstAttr);
int32_t HI_MPI_AO_DisableReSmp(int32_t s32Dev, int32_t s32Chn);

/**
 * Play one frame.
 * @param pstFrm  stays the caller's; its samples are read during the call
 * @param bBlock  1 waits until the driver takes the frame; 0: MPP_ERR_FULL when it cannot take it now
 * @return also MPP_ERR_PARAM for another bBlock or a frame above 2048 points
 */
int32_t HI_MPI_AO_SendFrame(int32_t s32Dev, int32_t s32Chn, const AUDIO_FRAME_S* pstFrm, uint32_t bBlock);

/** Descriptor to poll, opened if need be; it stays the library's. @return it, or a code */
int32_t HI_MPI_AO_GetFd(int32_t s32Dev, int32_t s32Chn);
/** The same for a slot 0 to 47: device * 16 + channel. */
int32_t HI_MPI_AO_GetFileHandle(int32_t s32Slot);

/**
 * What the binder calls for each frame of a bound decoder; sends blocking. A data type other than
 * MPP_DATA_AUDIO_FRAME or null data is a failed assertion and ends the process.
 */
int32_t MPI_AO_ReceiveFrm(int32_t s32Dev, int32_t s32Chn, int32_t enDataType, void* pData);

#ifdef __cplusplus
}
#endif
#endif
