// Adapter operations of G.726.
#include "mpi/audio/codec/adp_common.hpp"

using namespace zep::adp;

namespace {

struct G726Encoder {
    uint32_t marker;
    G726_STATE_S state;
};

struct G726Decoder {
    DecoderHead head;
    G726_STATE_S state;
};

// Smallest whole group of codes by their bits: octets and points.
constexpr ADEC_FRAME_INFO_S kGroup[] = {{1, 4}, {3, 8}, {1, 2}, {5, 8}};

// False for an attribute word outside its values.
bool init(G726_STATE_S& state, const void* attribute)
{
    const uint32_t word = static_cast<const AUDIO_ATTR_G726_S*>(attribute)->u32Rate;
    if (word > G726_40K_AAL2) return false;
    return G726_Init(&state, 2 + word % 4, word >= G726_16K_AAL2 ? G726_PACK_AAL2 : G726_PACK_RFC3551) == 0;
}

} // namespace

int32_t OpenG726Encoder(void* pEncoderAttr, void** ppEncoder)
{
    ADP_ASSERT_OPEN_ENCODER();
    G726_STATE_S state;
    if (!init(state, pEncoderAttr)) return ADP_REFUSE(encoder_error(MPP_ERR_PARAM));
    auto* encoder = allocate_handle<G726Encoder>();
    if (!encoder) return encoder_error(MPP_ERR_NO_MEMORY);
    *encoder = {1, state};
    *ppEncoder = encoder;
    return 0;
}

int32_t EncodeG726Frm(void* pEncoder, const AUDIO_FRAME_S* pstData, uint8_t* pu8Outbuf, uint32_t* pu32OutLen)
{
    ADP_ASSERT_ENCODE();
    auto& state = static_cast<G726Encoder*>(pEncoder)->state;
    Pcm pcm;
    if (const uint32_t number = look_at(*pstData, Channels::one, pcm))
        return ADP_REFUSE(encoder_error(number));
    const size_t bits = pcm.points * state.u8Bits;
    if (bits % 8 != 0 || bits / 8 > AUDIO_ADP_MAX_G726) return ADP_REFUSE(encoder_error(MPP_ERR_PARAM));
    if (bits / 8 > *pu32OutLen) return ADP_REFUSE(encoder_error(MPP_ERR_FULL));
    *pu32OutLen = uint32_t(G726_Encode(&state, pcm.left, pcm.points, pu8Outbuf));
    return 0;
}

int32_t CloseG726Encoder(void* pEncoder)
{
    ADP_ASSERT_SET(pEncoder);
    free(pEncoder);
    return 0;
}

int32_t OpenG726Decoder(void* pDecoderAttr, void** ppDecoder)
{
    ADP_ASSERT_OPEN_DECODER();
    G726_STATE_S state;
    if (!init(state, pDecoderAttr)) return ADP_REFUSE(decoder_error(MPP_ERR_PARAM));
    auto* decoder = allocate_handle<G726Decoder>();
    if (!decoder) return decoder_error(MPP_ERR_NO_MEMORY);
    *decoder = {{1, kGroup[state.u8Bits - 2]}, state};
    *ppDecoder = decoder;
    return 0;
}

int32_t DecodeG726Frm(void* pDecoder, uint8_t** pu8Inbuf, int32_t* ps32LeftByte, uint16_t* pu16Outbuf,
                      uint32_t* pu32OutLen, uint32_t* pu32Chns)
{
    ADP_ASSERT_DECODE();
    auto& decoder = *static_cast<G726Decoder*>(pDecoder);
    Stream stream(pu8Inbuf, ps32LeftByte, pu16Outbuf, pu32OutLen, pu32Chns);
    if (const int32_t error = stream.check()) return error;
    const auto& group = decoder.head.info;
    const size_t groups =
        std::min<size_t>(stream.left() / group.u32FrmBytes, AUDIO_MAX_POINTS / group.u32PtNumPerFrm);
    const size_t bytes = groups * group.u32FrmBytes;
    stream.advance(bytes, G726_Decode(&decoder.state, stream.octets(), bytes, stream.pcm()));
    return 0;
}

int32_t CloseG726Decoder(void* pDecoder)
{
    ADP_ASSERT_SET(pDecoder);
    free(pDecoder);
    return 0;
}
