/** Audio codec chip driver "/dev/acodec": requests and record. */
#ifndef FACTORY_ACODEC_UAPI_H
#define FACTORY_ACODEC_UAPI_H

#include <stddef.h>
#include <stdint.h>

#define ACODEC_DEVICE "/dev/acodec"

/* All read and write an ACODEC_CTRL_S. */
#define ACODEC_SET_SAMPLE_RATE 0xC0084101u
#define ACODEC_SET_MIC_IN 0xC0084102u
#define ACODEC_SET_MIC_VOL_1 0xC0084105u
#define ACODEC_SET_MIC_VOL_2 0xC0084106u
#define ACODEC_SET_DACL_VOL 0xC0084107u
#define ACODEC_SET_DACR_VOL 0xC0084108u
#define ACODEC_SET_ADCL_VOL 0xC0084109u
#define ACODEC_SET_ADCR_VOL 0xC008410Au

/** Settings of the chip. Bits without a name are the driver's and are handed back as they came. */
typedef struct {
    uint8_t u8Volume;    /* 0  bits 0-6 volume of the converter that the request names */
    uint8_t u8Driver1;   /* 1 */
    uint8_t u8Rate;      /* 2  bits 3-5 group of rates, bits 6-7 set */
    uint8_t u8Input;     /* 3  bit 1 cleared and bit 2 set: microphone */
    uint8_t u8MicVolume; /* 4  bits 0-4 */
    uint8_t au8Driver5[3];
} ACODEC_CTRL_S;

#ifdef __cplusplus
static_assert(sizeof(ACODEC_CTRL_S) == 8 && offsetof(ACODEC_CTRL_S, u8Rate) == 2);
static_assert(offsetof(ACODEC_CTRL_S, u8Input) == 3 && offsetof(ACODEC_CTRL_S, u8MicVolume) == 4);
static_assert(ACODEC_SET_SAMPLE_RATE == (3u << 30 | sizeof(ACODEC_CTRL_S) << 16 | 'A' << 8 | 1));
static_assert(ACODEC_SET_ADCR_VOL == (3u << 30 | sizeof(ACODEC_CTRL_S) << 16 | 'A' << 8 | 10));
#endif
#endif
