// Adapter operations of linear PCM. There is no handle, so none is asserted: a channel passes the null it was
// given.
#include "mpi/audio/codec/adp_common.hpp"
#include "mpi/audio/lpcm.h"

using namespace zep::adp;

int32_t OpenLPCMEncoder(void*, void**) { return 0; }

int32_t EncodeLPCMFrm(void*, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf, uint32_t* pu32OutLen)
{
    ADP_ASSERT_ENCODE_DATA();
    Pcm pcm;
    if (const uint32_t number = look_at(*pstData, Channels::one_or_two, pcm))
        return ADP_REFUSE(encoder_error(number));
    const size_t bytes = pcm.points * (pcm.right ? 4 : 2);
    if (bytes > *pu32OutLen) return ADP_REFUSE(encoder_error(MPP_ERR_FULL));
    LPCM_Encode(pcm.left, pcm.right, pcm.points, pu8Outbuf);
    *pu32OutLen = uint32_t(bytes);
    return 0;
}

int32_t CloseLPCMEncoder(void*) { return 0; }

int32_t OpenLPCMDecoder(void*, void**) { return 0; }

int32_t DecodeLPCMFrm(void*, uint8_t** pu8Inbuf, int32_t* ps32LeftByte, uint16_t* pu16Outbuf,
                      uint32_t* pu32OutLen, uint32_t* pu32Chns)
{
    ADP_ASSERT_DECODE_DATA();
    Stream stream(pu8Inbuf, ps32LeftByte, pu16Outbuf, pu32OutLen, pu32Chns);
    if (const int32_t error = stream.check()) return error;
    const size_t points = std::min<size_t>(stream.left() / 2, AUDIO_MAX_POINTS);
    LPCM_Decode(stream.octets(), points, stream.pcm());
    stream.advance(points * 2, points);
    return 0;
}

int32_t CloseLPCMDecoder(void*) { return 0; }
