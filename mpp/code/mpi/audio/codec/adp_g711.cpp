// Adapter operations of G.711, both laws.
#include "mpi/audio/codec/adp_common.hpp"

using namespace zep::adp;

namespace {

struct G711Decoder {
    DecoderHead head;
    G711_STATE_S state;
};

int32_t open_encoder(void** handle, uint32_t law)
{
    auto* encoder = allocate_handle<G711_ENCODER_S>();
    if (!encoder) return encoder_error(MPP_ERR_NO_MEMORY);
    encoder->u32Marker = 1;
    G711_Init(&encoder->stState, law);
    *handle = encoder;
    return 0;
}

int32_t encode(const void* handle, const AUDIO_FRAME_S& frame, uint8_t* octets, uint32_t* length)
{
    Pcm pcm;
    if (const uint32_t number = look_at(frame, Channels::one, pcm)) return encoder_error(number);
    if (pcm.points > AUDIO_ADP_MAX_G711) return encoder_error(MPP_ERR_PARAM);
    if (pcm.points > *length) return encoder_error(MPP_ERR_FULL);
    G711_Encode(&static_cast<const G711_ENCODER_S*>(handle)->stState, pcm.left, octets, pcm.points);
    *length = uint32_t(pcm.points);
    return 0;
}

int32_t open_decoder(void** handle, uint32_t law)
{
    auto* decoder = allocate_handle<G711Decoder>();
    if (!decoder) return decoder_error(MPP_ERR_NO_MEMORY);
    decoder->head = {1, {1, 1}};
    G711_Init(&decoder->state, law);
    *handle = decoder;
    return 0;
}

int32_t decode(const void* handle, Stream stream)
{
    if (const int32_t error = stream.check()) return error;
    const size_t points = std::min<size_t>(stream.left(), AUDIO_MAX_POINTS);
    G711_Decode(&static_cast<const G711Decoder*>(handle)->state, stream.octets(), stream.pcm(), points);
    stream.advance(points, points);
    return 0;
}

} // namespace

int32_t OpenG711AEncoder(void* pEncoderAttr, void** ppEncoder)
{
    ADP_ASSERT_OPEN_ENCODER();
    return open_encoder(ppEncoder, G711_A_LAW);
}

int32_t EncodeG711AFrm(void* pEncoder, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf, uint32_t* pu32OutLen)
{
    ADP_ASSERT_ENCODE();
    const int32_t error = encode(pEncoder, *pstData, pu8Outbuf, pu32OutLen);
    return error ? ADP_REFUSE(error) : 0;
}

int32_t CloseG711AEncoder(void* pEncoder)
{
    ADP_ASSERT_SET(pEncoder);
    free(pEncoder);
    return 0;
}

int32_t OpenG711UEncoder(void* pEncoderAttr, void** ppEncoder)
{
    ADP_ASSERT_OPEN_ENCODER();
    return open_encoder(ppEncoder, G711_MU_LAW);
}

int32_t EncodeG711UFrm(void* pEncoder, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf, uint32_t* pu32OutLen)
{
    ADP_ASSERT_ENCODE();
    const int32_t error = encode(pEncoder, *pstData, pu8Outbuf, pu32OutLen);
    return error ? ADP_REFUSE(error) : 0;
}

int32_t CloseG711UEncoder(void* pEncoder)
{
    ADP_ASSERT_SET(pEncoder);
    free(pEncoder);
    return 0;
}

int32_t OpenG711ADecoder(void* pDecoderAttr, void** ppDecoder)
{
    ADP_ASSERT_OPEN_DECODER();
    return open_decoder(ppDecoder, G711_A_LAW);
}

int32_t DecodeG711AFrm(void* pDecoder, uint8_t** pu8Inbuf, int32_t* ps32LeftByte, uint16_t* pu16Outbuf,
                       uint32_t* pu32OutLen, uint32_t* pu32Chns)
{
    ADP_ASSERT_DECODE();
    return decode(pDecoder, Stream(pu8Inbuf, ps32LeftByte, pu16Outbuf, pu32OutLen, pu32Chns));
}

int32_t CloseG711ADecoder(void* pDecoder)
{
    ADP_ASSERT_SET(pDecoder);
    free(pDecoder);
    return 0;
}

int32_t OpenG711UDecoder(void* pDecoderAttr, void** ppDecoder)
{
    ADP_ASSERT_OPEN_DECODER();
    return open_decoder(ppDecoder, G711_MU_LAW);
}

int32_t DecodeG711UFrm(void* pDecoder, uint8_t** pu8Inbuf, int32_t* ps32LeftByte, uint16_t* pu16Outbuf,
                       uint32_t* pu32OutLen, uint32_t* pu32Chns)
{
    ADP_ASSERT_DECODE();
    return decode(pDecoder, Stream(pu8Inbuf, ps32LeftByte, pu16Outbuf, pu32OutLen, pu32Chns));
}

int32_t CloseG711UDecoder(void* pDecoder)
{
    ADP_ASSERT_SET(pDecoder);
    free(pDecoder);
    return 0;
}
