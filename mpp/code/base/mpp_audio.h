/** Audio records that the modules of the media platform hand to each other. */
#ifndef MPP_BASE_MPP_AUDIO_H
#define MPP_BASE_MPP_AUDIO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The built-in codecs, one row each: payload type, its number, its name on a command line. Whatever lists them is made
 * from these rows.
 */
/* clang-format off */
#define MPP_PAYLOAD_TYPES(ROW)   \
    ROW(PT_G711A, 19, "g711a")   \
    ROW(PT_G711U, 20, "g711u")   \
    ROW(PT_G726,  21, "g726")    \
    ROW(PT_LPCM,  23, "lpcm")    \
    ROW(PT_ADPCM, 49, "adpcm")
/* clang-format on */

/** Payload types: PT_G711A = 19 and so on; -1 marks a free registry entry. */
#define MPP_PAYLOAD_TYPE(TYPE, NUMBER, NAME) TYPE = NUMBER,
typedef enum { MPP_PAYLOAD_TYPES(MPP_PAYLOAD_TYPE) } PAYLOAD_TYPE_E;
#undef MPP_PAYLOAD_TYPE

enum {
    AUDIO_BIT_WIDTH_8 = 0,
    AUDIO_BIT_WIDTH_16 = 1,
    AUDIO_SOUND_MONO = 0,
    AUDIO_SOUND_STEREO = 1,
    AUDIO_MAX_POINTS = 2048, /* points of one channel in a frame, at most */
};

/**
 * One frame of samples, twelve words on the device. Sample blocks are 16-bit signed, native order, one
 * block a channel. The frame owns nothing: the function that filled it says how it is released.
 */
typedef struct {
    uint32_t u32BitWidth;    /*  0  AUDIO_BIT_WIDTH_* */
    uint32_t u32SoundMode;   /*  4  AUDIO_SOUND_* */
    uint8_t* pu8VirtAddr[2]; /*  8  left (or only) and right sample block */
    uint32_t u32PhysAddr[2]; /* 16  their physical addresses */
    uint32_t au32Pass[3];    /* 24  passed through as the driver gave them */
    uint32_t u32Len;         /* 36  bytes of one channel's block */
    int32_t s32PoolId;       /* 40  buffer pool; -1: the library allocated the block itself */
    uint32_t u32PassLast;    /* 44  passed through */
} AUDIO_FRAME_S;

#ifdef __cplusplus
}
static_assert(sizeof(void*) != 4 || sizeof(AUDIO_FRAME_S) == 48, "the driver's record");
#endif
#endif
