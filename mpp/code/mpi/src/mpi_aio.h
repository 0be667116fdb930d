/** Records that audio input and output share. */
#ifndef MPI_SRC_MPI_AIO_H
#define MPI_SRC_MPI_AIO_H

#include <stdint.h>

#include "base/mpp_audio.h"
#include "mpi/src/ai_uapi.h"

/**
 * Resampling of one channel, mono. For input the input side is the device and the output side the caller; for
 * output the input side is the caller and the output side the device.
 */
typedef struct {
    uint32_t u32InPointNum;  /* 0  points of an input frame, at most 2048 */
    uint32_t enInSampleRate; /* 4  Hz, 8000 to 48000 */
    uint32_t enReSampleType; /* 8  1 up by 2, 2 down by 2, 3 up by 4, 4 down by 4, 5 up by 6, 6 down by 6 */
} AIO_RESAMPLE_ATTR_S;

#endif
