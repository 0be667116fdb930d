/**
 * Codec adapter: the built-in codecs behind the descriptors of base/mpp_codec.h.
 *
 * A null argument of an open, encode, decode or close operation is a fault of the caller's program: it is
 * printed as a failed assertion and ends the process. Faults of a frame or a stream are returned as a code:
 *
 *   MPP_ERR_PARAM      a frame that is not 16-bit, or is stereo (LPCM takes stereo), or has a length that the
 *                      codec cannot carry; an attribute word outside its values; a damaged ADPCM header
 *   MPP_ERR_NULL       a frame without samples
 *   MPP_ERR_FULL       an encoded frame longer than the room given: nothing is written
 *   MPP_ERR_NO_MEMORY  open found no memory for its handle
 *
 * The LPCM operations have no handle: open and close do nothing and return 0, handle arguments are ignored.
 * Decoders give one channel, because a stream does not say how many it has: interleaved LPCM comes out as its
 * samples stand.
 */
#ifndef MPP_MPI_AUDIO_AUDIO_VOICE_ADP_H
#define MPP_MPI_AUDIO_AUDIO_VOICE_ADP_H

#include <stdint.h>

#include "base/mpp_codec.h"
#include "mpi/audio/adpcm.h"
#include "mpi/audio/g711.h"
#include "mpi/audio/g726.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Bytes of the longest encoded frame. */
enum {
    AUDIO_ADP_MAX_LPCM = 8192,
    AUDIO_ADP_MAX_G711 = 960,
    AUDIO_ADP_MAX_ADPCM = 480,
    AUDIO_ADP_MAX_G726 = 960
};

/**
 * Words of G.726's attribute, of encoder and decoder; those named AAL2 pack from the most significant bit.
 */
enum {
    G726_16K = 0,
    G726_24K = 1,
    G726_32K = 2,
    G726_40K = 3,
    G726_16K_AAL2 = 4,
    G726_24K_AAL2 = 5,
    G726_32K_AAL2 = 6,
    G726_40K_AAL2 = 7
};

/** Attribute of G.726. One word, because callers fill no more than the first. */
typedef struct {
    uint32_t u32Rate; /* G726_16K to G726_40K_AAL2 */
} AUDIO_ATTR_G726_S;

/**
 * Attribute of ADPCM. The bytes do not show where a frame ends. A decoder takes the points of a frame from
 * the upper half of the word; 0 there means that every call of the decoder is given exactly one frame, and
 * two in one call come out as one with the second header as sound.
 */
typedef struct {
    uint32_t u32Type; /* bits 0-15 ADPCM_DVI4 or ADPCM_IMA_BLOCK; bits 16-31 points per frame, decoder only */
} AUDIO_ATTR_ADPCM_S;

/** Handle of the G.711 encoders. */
typedef struct {
    uint32_t u32Marker; /* 1 */
    G711_STATE_S stState;
} G711_ENCODER_S;

/** AENC_OPEN_FN of LPCM, which has no handle; the attribute is not read. @return as said above */
int32_t OpenLPCMEncoder(void* pEncoderAttr, void** ppEncoder);
/** AENC_ENCODE_FN of LPCM, which has no handle. @return as said above */
int32_t EncodeLPCMFrm(void* pEncoder, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf, uint32_t* pu32OutLen);
/** AENC_CLOSE_FN of LPCM, which has no handle. @return 0 */
int32_t CloseLPCMEncoder(void* pEncoder);
/** AENC_OPEN_FN of G.711 A-law; the attribute is not read. @return as said above */
int32_t OpenG711AEncoder(void* pEncoderAttr, void** ppEncoder);
/** AENC_ENCODE_FN of G.711 A-law. @return as said above */
int32_t EncodeG711AFrm(void* pEncoder, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf,
                       uint32_t* pu32OutLen);
/** AENC_CLOSE_FN of G.711 A-law. @return 0 */
int32_t CloseG711AEncoder(void* pEncoder);
/** AENC_OPEN_FN of G.711 mu-law; the attribute is not read. @return as said above */
int32_t OpenG711UEncoder(void* pEncoderAttr, void** ppEncoder);
/** AENC_ENCODE_FN of G.711 mu-law. @return as said above */
int32_t EncodeG711UFrm(void* pEncoder, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf,
                       uint32_t* pu32OutLen);
/** AENC_CLOSE_FN of G.711 mu-law. @return 0 */
int32_t CloseG711UEncoder(void* pEncoder);
/** AENC_OPEN_FN of ADPCM; the attribute is an AUDIO_ATTR_ADPCM_S. @return as said above */
int32_t OpenADPCMEncoder(void* pEncoderAttr, void** ppEncoder);
/** AENC_ENCODE_FN of ADPCM. @return as said above */
int32_t EncodeADPCMFrm(void* pEncoder, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf,
                       uint32_t* pu32OutLen);
/** AENC_CLOSE_FN of ADPCM. @return 0 */
int32_t CloseADPCMEncoder(void* pEncoder);
/** AENC_OPEN_FN of G.726; the attribute is an AUDIO_ATTR_G726_S. @return as said above */
int32_t OpenG726Encoder(void* pEncoderAttr, void** ppEncoder);
/** AENC_ENCODE_FN of G.726. @return as said above */
int32_t EncodeG726Frm(void* pEncoder, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf, uint32_t* pu32OutLen);
/** AENC_CLOSE_FN of G.726. @return 0 */
int32_t CloseG726Encoder(void* pEncoder);

/** ADEC_OPEN_FN of LPCM, which has no handle; the attribute is not read. @return as said above */
int32_t OpenLPCMDecoder(void* pDecoderAttr, void** ppDecoder);
/** ADEC_DECODE_FN of LPCM, which has no handle. @return as said above */
int32_t DecodeLPCMFrm(void* pDecoder, uint8_t** pu8Inbuf, int32_t* ps32LeftByte, uint16_t* pu16Outbuf,
                      uint32_t* pu32OutLen, uint32_t* pu32Chns);
/** ADEC_CLOSE_FN of LPCM, which has no handle. @return 0 */
int32_t CloseLPCMDecoder(void* pDecoder);
/** ADEC_OPEN_FN of G.711 A-law; the attribute is not read. @return as said above */
int32_t OpenG711ADecoder(void* pDecoderAttr, void** ppDecoder);
/** ADEC_DECODE_FN of G.711 A-law. @return as said above */
int32_t DecodeG711AFrm(void* pDecoder, uint8_t** pu8Inbuf, int32_t* ps32LeftByte, uint16_t* pu16Outbuf,
                       uint32_t* pu32OutLen, uint32_t* pu32Chns);
/** ADEC_CLOSE_FN of G.711 A-law. @return 0 */
int32_t CloseG711ADecoder(void* pDecoder);
/** ADEC_OPEN_FN of G.711 mu-law; the attribute is not read. @return as said above */
int32_t OpenG711UDecoder(void* pDecoderAttr, void** ppDecoder);
/** ADEC_DECODE_FN of G.711 mu-law. @return as said above */
int32_t DecodeG711UFrm(void* pDecoder, uint8_t** pu8Inbuf, int32_t* ps32LeftByte, uint16_t* pu16Outbuf,
                       uint32_t* pu32OutLen, uint32_t* pu32Chns);
/** ADEC_CLOSE_FN of G.711 mu-law. @return 0 */
int32_t CloseG711UDecoder(void* pDecoder);
/** ADEC_OPEN_FN of ADPCM; the attribute is an AUDIO_ATTR_ADPCM_S. @return as said above */
int32_t OpenADPCMDecoder(void* pDecoderAttr, void** ppDecoder);
/** ADEC_DECODE_FN of ADPCM. @return as said above */
int32_t DecodeADPCMFrm(void* pDecoder, uint8_t** pu8Inbuf, int32_t* ps32LeftByte, uint16_t* pu16Outbuf,
                       uint32_t* pu32OutLen, uint32_t* pu32Chns);
/** ADEC_CLOSE_FN of ADPCM. @return 0 */
int32_t CloseADPCMDecoder(void* pDecoder);
/** ADEC_OPEN_FN of G.726; the attribute is an AUDIO_ATTR_G726_S. @return as said above */
int32_t OpenG726Decoder(void* pDecoderAttr, void** ppDecoder);
/** ADEC_DECODE_FN of G.726. @return as said above */
int32_t DecodeG726Frm(void* pDecoder, uint8_t** pu8Inbuf, int32_t* ps32LeftByte, uint16_t* pu16Outbuf,
                      uint32_t* pu32OutLen, uint32_t* pu32Chns);
/** ADEC_CLOSE_FN of G.726. @return 0 */
int32_t CloseG726Decoder(void* pDecoder);

/**
 * Frame information of any built-in decoder.
 * @param pDecoder  its handle; NULL stands for LPCM, which has none
 * @param pInfo     an ADEC_FRAME_INFO_S to fill
 * @return 0; 0xA0188006 when pInfo is null
 */
int32_t GetFrmInfo(void* pDecoder, void* pInfo);

/**
 * Hand the descriptors of the built-in encoders to a registry one by one: "Lpcm", "G711a", "G711u", "Adpcm",
 * "G726". The adapter does not know the registries, which lie above it.
 * @return 0, or what the first refused registration returned; the rest is then not tried
 */
int32_t AUDIO_ADP_RegisterEncoders(int32_t (*pfnRegister)(int32_t* ps32Handle,
                                                          const AENC_ENCODER_S* pstEncoder));
/** The same for the decoders. @return as AUDIO_ADP_RegisterEncoders */
int32_t AUDIO_ADP_RegisterDecoders(int32_t (*pfnRegister)(int32_t* ps32Handle,
                                                          const ADEC_DECODER_S* pstDecoder));

#ifdef __cplusplus
}
static_assert(sizeof(G711_ENCODER_S) == 12);
#endif
#endif
