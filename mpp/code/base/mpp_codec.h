/**
 * Codec descriptors: how an encoder or decoder channel calls a codec it finds by payload type.
 *
 * Every operation returns 0 or a coded error (base/mpp_error.h) of HI_ID_AENC for encoders, of HI_ID_ADEC for
 * decoders. A handle belongs to the one channel that opened it and is used by one thread at a time.
 */
#ifndef MPP_BASE_MPP_CODEC_H
#define MPP_BASE_MPP_CODEC_H

#include <stdint.h>

#include "base/mpp_audio.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    CODEC_NAME_LEN = 16,     /* characters of a descriptor's name, NUL-padded */
    CODEC_REGISTRY_SIZE = 20 /* entries of each registry */
};

/**
 * Encoder open.
 * @param pEncoderAttr  the codec's attribute record (mpi/audio/audio_voice_adp.h); read during the call
 * @param ppEncoder     receives the handle; left alone on failure
 * @return 0, or a code; nothing stays open then
 */
typedef int32_t (*AENC_OPEN_FN)(void* pEncoderAttr, void** ppEncoder);
/**
 * Encode one frame.
 * @param pstData    the frame; stays the caller's
 * @param pu8Outbuf  receives the encoded frame
 * @param pu32OutLen in: room in pu8Outbuf, bytes; out: bytes written. A frame that does not fit is refused
 *                   whole with number MPP_ERR_FULL.
 */
typedef int32_t (*AENC_ENCODE_FN)(void* pEncoder, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf,
                                  uint32_t* pu32OutLen);
/** Free the handle. @return 0 */
typedef int32_t (*AENC_CLOSE_FN)(void* pEncoder);

/** Encoder descriptor; the registry keeps a copy. */
typedef struct {
    int32_t enType;               /* payload type; -1 marks a free registry entry */
    uint32_t u32MaxFrmLen;        /* bytes of the longest encoded frame */
    char aszName[CODEC_NAME_LEN]; /* NUL-padded */
    AENC_OPEN_FN pfnOpenEncoder;
    AENC_ENCODE_FN pfnEncodeFrm;
    AENC_CLOSE_FN pfnCloseEncoder;
} AENC_ENCODER_S;

/** Frames of a decoder. Both words 0: a call of the decoder is given exactly one frame. */
typedef struct {
    uint32_t u32FrmBytes;    /* bytes of the smallest whole frame */
    uint32_t u32PtNumPerFrm; /* points that it holds */
} ADEC_FRAME_INFO_S;

/** As AENC_OPEN_FN. */
typedef int32_t (*ADEC_OPEN_FN)(void* pDecoderAttr, void** ppDecoder);
/**
 * Decode the whole frames that are given.
 * @param pu8Inbuf     in-out: read position, moved behind what was used
 * @param ps32LeftByte in-out: bytes left from there; a tail too short for a frame stays and is no error
 * @param pu16Outbuf   samples; room for AUDIO_MAX_POINTS of two channels, never exceeded; the right channel's
 *                     block follows the left one's
 * @param pu32OutLen   bytes of one channel written; 0 when no whole frame was there
 * @param pu32Chns     channels written
 */
typedef int32_t (*ADEC_DECODE_FN)(void* pDecoder, uint8_t** pu8Inbuf, int32_t* ps32LeftByte,
                                  uint16_t* pu16Outbuf, uint32_t* pu32OutLen, uint32_t* pu32Chns);
/** Fill an ADEC_FRAME_INFO_S. @return 0, or a code */
typedef int32_t (*ADEC_FRAME_INFO_FN)(void* pDecoder, void* pInfo);
/** Free the handle. @return 0 */
typedef int32_t (*ADEC_CLOSE_FN)(void* pDecoder);

/** Decoder descriptor; the registry keeps a copy. */
typedef struct {
    int32_t enType;               /* payload type; -1 marks a free registry entry */
    char aszName[CODEC_NAME_LEN]; /* NUL-padded */
    ADEC_OPEN_FN pfnOpenDecoder;
    ADEC_DECODE_FN pfnDecodeFrm;
    ADEC_FRAME_INFO_FN pfnGetFrmInfo; /* fills an ADEC_FRAME_INFO_S */
    ADEC_CLOSE_FN pfnCloseDecoder;
} ADEC_DECODER_S;

#ifdef __cplusplus
}
static_assert(sizeof(void*) != 4 || (sizeof(AENC_ENCODER_S) == 36 && sizeof(ADEC_DECODER_S) == 36));
#endif
#endif
