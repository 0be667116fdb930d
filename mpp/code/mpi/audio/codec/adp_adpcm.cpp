// Adapter operations of IMA/DVI4 ADPCM.
#include "mpi/audio/codec/adp_common.hpp"

using namespace zep::adp;

namespace {

struct AdpcmEncoder {
    uint32_t marker;
    ADPCM_STATE_S state;
};

struct AdpcmDecoder {
    DecoderHead head;
    ADPCM_STATE_S state;
};

constexpr uint32_t type_of(uint32_t word) { return word & 0xffff; }
constexpr uint32_t points_of(uint32_t word) { return word >> 16; }

// Bytes of the frame at the head of what is left; 0 while it is not all there.
size_t frame_bytes(const AdpcmDecoder& decoder, size_t left)
{
    const size_t known = decoder.head.info.u32FrmBytes;
    if (known != 0) return left >= known ? known : 0;
    return left > ADPCM_HEADER_BYTES ? left : 0;
}

} // namespace

int32_t OpenADPCMEncoder(void* pEncoderAttr, void** ppEncoder)
{
    ADP_ASSERT_OPEN_ENCODER();
    ADPCM_STATE_S state;
    if (ADPCM_Init(&state, static_cast<AUDIO_ATTR_ADPCM_S*>(pEncoderAttr)->u32Type) != 0)
        return ADP_REFUSE(encoder_error(MPP_ERR_PARAM));
    auto* encoder = allocate_handle<AdpcmEncoder>();
    if (!encoder) return encoder_error(MPP_ERR_NO_MEMORY);
    *encoder = {1, state};
    *ppEncoder = encoder;
    return 0;
}

int32_t EncodeADPCMFrm(void* pEncoder, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf, uint32_t* pu32OutLen)
{
    ADP_ASSERT_ENCODE();
    auto& encoder = *static_cast<AdpcmEncoder*>(pEncoder);
    const bool block = encoder.state.u8Format == ADPCM_IMA_BLOCK;
    const size_t points = pstData->u32Len / sizeof(int16_t);
    const size_t bytes = ADPCM_FrameBytes(encoder.state.u8Format, points);
    if (bytes == 0 || bytes > AUDIO_ADP_MAX_ADPCM) {
        MPP_LOG("the u32PtNumPerFrm(%u) of adpcm must be %s and at most %u!\n", unsigned(points),
                block ? "odd" : "even", block ? 953u : 952u);
        return encoder_error(MPP_ERR_PARAM);
    }
    Pcm pcm;
    if (const uint32_t number = look_at(*pstData, Channels::one, pcm))
        return ADP_REFUSE(encoder_error(number));
    if (bytes > *pu32OutLen) return ADP_REFUSE(encoder_error(MPP_ERR_FULL));
    *pu32OutLen = uint32_t(ADPCM_Encode(&encoder.state, pcm.left, pcm.points, pu8Outbuf));
    return 0;
}

int32_t CloseADPCMEncoder(void* pEncoder)
{
    ADP_ASSERT_SET(pEncoder);
    free(pEncoder);
    return 0;
}

int32_t OpenADPCMDecoder(void* pDecoderAttr, void** ppDecoder)
{
    ADP_ASSERT_OPEN_DECODER();
    const uint32_t word = static_cast<AUDIO_ATTR_ADPCM_S*>(pDecoderAttr)->u32Type, points = points_of(word);
    ADPCM_STATE_S state;
    if (ADPCM_Init(&state, type_of(word)) != 0) return ADP_REFUSE(decoder_error(MPP_ERR_PARAM));
    const size_t bytes = ADPCM_FrameBytes(type_of(word), points);
    if (points != 0 && (bytes == 0 || points > AUDIO_MAX_POINTS))
        return ADP_REFUSE(decoder_error(MPP_ERR_PARAM));
    auto* decoder = allocate_handle<AdpcmDecoder>();
    if (!decoder) return decoder_error(MPP_ERR_NO_MEMORY);
    *decoder = {{1, {uint32_t(bytes), points}}, state};
    *ppDecoder = decoder;
    return 0;
}

int32_t DecodeADPCMFrm(void* pDecoder, uint8_t** pu8Inbuf, int32_t* ps32LeftByte, uint16_t* pu16Outbuf,
                       uint32_t* pu32OutLen, uint32_t* pu32Chns)
{
    ADP_ASSERT_DECODE();
    auto& decoder = *static_cast<AdpcmDecoder*>(pDecoder);
    Stream stream(pu8Inbuf, ps32LeftByte, pu16Outbuf, pu32OutLen, pu32Chns);
    if (const int32_t error = stream.check()) return error;
    const size_t bytes = frame_bytes(decoder, stream.left());
    if (bytes == 0) return 0;
    size_t points = 0;
    if (ADPCM_FramePoints(decoder.state.u8Format, bytes) <= AUDIO_MAX_POINTS)
        points = ADPCM_Decode(&decoder.state, stream.octets(), bytes, stream.pcm());
    // A damaged frame is passed over, so that the next call meets the next header.
    stream.advance(bytes, points);
    return points ? 0 : decoder_error(MPP_ERR_PARAM);
}

int32_t CloseADPCMDecoder(void* pDecoder)
{
    ADP_ASSERT_SET(pDecoder);
    free(pDecoder);
    return 0;
}
