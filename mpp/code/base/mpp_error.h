/**
 * Error codes and module numbers of the media platform.
 *
 * Public operations return 0 or one 32-bit code:
 *   bits 31-24  0xA0, marks a media-platform error
 *   bits 23-16  module (MOD_ID)
 *   bits 15-13  level, always 4 (error)
 *   bits 12-0   error number (MPP_ERR_*)
 * As an int32_t such a code is negative.
 */
#ifndef MPP_BASE_MPP_ERROR_H
#define MPP_BASE_MPP_ERROR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Modules of the platform and its drivers; valid 0 to HI_ID_BUTT - 1. */
typedef enum {
    HI_ID_VB = 1,         /* buffer pools */
    HI_ID_SYS = 2,        /* system and binder */
    HI_ID_VIDEO_OUT = 15, /* driver side only; named because it has several devices */
    HI_ID_AI = 21,        /* audio input */
    HI_ID_AO = 22,        /* audio output */
    HI_ID_AENC = 23,      /* audio encoder channels */
    HI_ID_ADEC = 24,      /* audio decoder channels */
    HI_ID_BUTT = 41,
} MOD_ID;

/** Error numbers, bits 12-0 of a code. */
enum {
    MPP_ERR_DEVICE = 0x1,    /* no such device */
    MPP_ERR_CHANNEL = 0x2,   /* no such channel */
    MPP_ERR_PARAM = 0x3,     /* illegal parameter */
    MPP_ERR_EXISTS = 0x4,    /* channel exists already */
    MPP_ERR_MISSING = 0x5,   /* channel does not exist */
    MPP_ERR_NULL = 0x6,      /* null pointer */
    MPP_ERR_NO_CONFIG = 0x7, /* attributes not set */
    MPP_ERR_NOT_PERM = 0x9,  /* not permitted in this state */
    MPP_ERR_NO_MEMORY = 0xC, /* out of memory */
    MPP_ERR_EMPTY = 0xE,     /* no frame to be had */
    MPP_ERR_FULL = 0xF,      /* no room: table, queue or the caller's buffer */
    MPP_ERR_REFUSED = 0x10,  /* the driver refused, or is not there */
    MPP_ERR_BUSY = 0x12,     /* in use */
};

/** The code of an error number in a module, as the operations return it. */
#define MPP_ERROR(module, number)                                                                            \
    ((int32_t)(0xA0000000u | ((uint32_t)(module) << 16) | (4u << 13) | (uint32_t)(number)))

/** Address of a channel: module, device and channel, as the binder and the drivers take it. */
typedef struct {
    int32_t s32ModId; /*  0  MOD_ID */
    int32_t s32DevId; /*  4  counts only for modules with several devices: 15, 21, 22 */
    int32_t s32ChnId; /*  8 */
} MPP_CHN_S;

#ifdef __cplusplus
}
static_assert(sizeof(MPP_CHN_S) == 12);
#endif
#endif
