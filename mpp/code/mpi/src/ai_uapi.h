/** Audio input driver "/dev/ai": requests and records. */
#ifndef MPI_SRC_AI_UAPI_H
#define MPI_SRC_AI_UAPI_H

#include <stddef.h>
#include <stdint.h>

#include "base/mpp_audio.h"

#define AI_DEVICE "/dev/ai"

#define AI_REQ_BIND_SLOT 0x40045A00u    /* uint32_t slot */
#define AI_REQ_SET_PUB_ATTR 0x40245A01u /* AIO_ATTR_S */
#define AI_REQ_GET_PUB_ATTR 0x80245A02u /* AIO_ATTR_S */
#define AI_REQ_ENABLE 0x00005A03u
#define AI_REQ_DISABLE 0x00005A04u
#define AI_REQ_GET_POOL 0x80045A05u      /* uint32_t pool */
#define AI_REQ_GET_CHN_PARAM 0x80085A06u /* AI_CHN_PARAM_S */
#define AI_REQ_SET_CHN_PARAM 0x40085A07u /* AI_CHN_PARAM_S */
#define AI_REQ_GET_FRAME 0x80685A08u     /* AI_EXCHANGE_S */
#define AI_REQ_RELEASE_FRAME 0x40685A09u /* AI_EXCHANGE_S */
#define AI_REQ_ENABLE_AEC 0x40085A0Au    /* AI_AEC_SOURCE_S */
#define AI_REQ_DISABLE_AEC 0x00005A0Bu
#define AI_REQ_ENABLE_CHN 0x00005A0Cu
#define AI_REQ_DISABLE_CHN 0x00005A0Du

enum { AIO_MAX_DEVICES = 3, AIO_MAX_CHANNELS = 16, AIO_SLOTS = AIO_MAX_DEVICES * AIO_MAX_CHANNELS };

/** Attributes of an audio device, input or output. The library reads words 0, 3 and 6. */
typedef struct {
    uint32_t enSamplerate;   /*  0  Hz */
    uint32_t enBitwidth;     /*  4  AUDIO_BIT_WIDTH_* */
    uint32_t enWorkmode;     /*  8  the driver's: which side clocks the interface */
    uint32_t enSoundmode;    /* 12  AUDIO_SOUND_* */
    uint32_t u32EXFlag;      /* 16  the driver's: how 8-bit samples are widened */
    uint32_t u32FrmNum;      /* 20  the driver's: frames that it buffers */
    uint32_t u32PtNumPerFrm; /* 24  points of one channel in a frame */
    uint32_t u32ChnCnt;      /* 28  the driver's: channels of the device */
    uint32_t u32ClkSel;      /* 32  the driver's: which clock */
} AIO_ATTR_S;

typedef struct {
    uint32_t u32UsrFrmDepth; /* 0  frames that are kept for the user */
    uint32_t u32Driver;      /* 4 */
} AI_CHN_PARAM_S;

/** Echo reference: what the loudspeaker played in the frame's time. */
typedef struct {
    AUDIO_FRAME_S stFrame; /*  0 */
    uint32_t bValid;       /* 48  1: there is one */
    uint32_t u32Driver;    /* 52 */
} AEC_FRAME_S;

/** What the driver exchanges: a frame with its reference. */
typedef struct {
    AUDIO_FRAME_S stFrame; /*  0 */
    AEC_FRAME_S stAec;     /* 48 */
} AI_EXCHANGE_S;

typedef struct {
    int32_t s32AoDev; /* 0 */
    int32_t s32AoChn; /* 4 */
} AI_AEC_SOURCE_S;

#ifdef __cplusplus
static_assert(sizeof(AIO_ATTR_S) == 36 && offsetof(AIO_ATTR_S, enSoundmode) == 12 &&
              offsetof(AIO_ATTR_S, u32PtNumPerFrm) == 24);
static_assert(sizeof(AI_CHN_PARAM_S) == 8 && sizeof(AI_AEC_SOURCE_S) == 8);
static_assert(sizeof(void*) != 4 || (sizeof(AEC_FRAME_S) == 56 && sizeof(AI_EXCHANGE_S) == 104));
#endif
#endif
