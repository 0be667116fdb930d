/** Audio output driver "/dev/ao": requests and records. */
#ifndef MPI_SRC_AO_UAPI_H
#define MPI_SRC_AO_UAPI_H

#include "mpi/src/ai_uapi.h"

#define AO_DEVICE "/dev/ao"

#define AO_REQ_BIND_SLOT 0x40045800u    /* uint32_t slot */
#define AO_REQ_SET_PUB_ATTR 0x40245801u /* AIO_ATTR_S */
#define AO_REQ_GET_PUB_ATTR 0x80245802u /* AIO_ATTR_S */
#define AO_REQ_ENABLE 0x00005803u
#define AO_REQ_DISABLE 0x00005804u
#define AO_REQ_SEND_FRAME 0x40305805u /* AUDIO_FRAME_S */
#define AO_REQ_ENABLE_CHN 0x00005808u
#define AO_REQ_DISABLE_CHN 0x00005809u
#define AO_REQ_PAUSE_CHN 0x0000580Au
#define AO_REQ_RESUME_CHN 0x0000580Bu
#define AO_REQ_CLEAR_BUF 0x0000580Eu

#endif
