// Codec adapter: the table of built-in codecs, and what their operations share.
#include "mpi/audio/audio_voice_adp.h"

#include "mpi/audio/codec/adp_common.hpp"

namespace {

// The order is the order of registration.
constexpr AENC_ENCODER_S kEncoders[] = {
    {PT_LPCM, AUDIO_ADP_MAX_LPCM, "Lpcm", OpenLPCMEncoder, EncodeLPCMFrm, CloseLPCMEncoder},
    {PT_G711A, AUDIO_ADP_MAX_G711, "G711a", OpenG711AEncoder, EncodeG711AFrm, CloseG711AEncoder},
    {PT_G711U, AUDIO_ADP_MAX_G711, "G711u", OpenG711UEncoder, EncodeG711UFrm, CloseG711UEncoder},
    {PT_ADPCM, AUDIO_ADP_MAX_ADPCM, "Adpcm", OpenADPCMEncoder, EncodeADPCMFrm, CloseADPCMEncoder},
    {PT_G726, AUDIO_ADP_MAX_G726, "G726", OpenG726Encoder, EncodeG726Frm, CloseG726Encoder},
};

constexpr ADEC_DECODER_S kDecoders[] = {
    {PT_LPCM, "Lpcm", OpenLPCMDecoder, DecodeLPCMFrm, GetFrmInfo, CloseLPCMDecoder},
    {PT_G711A, "G711a", OpenG711ADecoder, DecodeG711AFrm, GetFrmInfo, CloseG711ADecoder},
    {PT_G711U, "G711u", OpenG711UDecoder, DecodeG711UFrm, GetFrmInfo, CloseG711UDecoder},
    {PT_ADPCM, "Adpcm", OpenADPCMDecoder, DecodeADPCMFrm, GetFrmInfo, CloseADPCMDecoder},
    {PT_G726, "G726", OpenG726Decoder, DecodeG726Frm, GetFrmInfo, CloseG726Decoder},
};

template<class Table, class Register> int32_t register_all(const Table& table, Register add)
{
    for (const auto& descriptor : table) {
        int32_t handle;
        if (const int32_t error = add(&handle, &descriptor)) return error;
    }
    return 0;
}

} // namespace

namespace zep::adp {

int32_t refuse(const char* function, int line, int32_t code)
{
    mpp_log(function, line, "Audio some err:0x%x\n", unsigned(code));
    return code;
}

uint32_t look_at(const AUDIO_FRAME_S& frame, Channels channels, Pcm& pcm)
{
    const bool stereo = frame.u32SoundMode == AUDIO_SOUND_STEREO;
    if (frame.u32BitWidth != AUDIO_BIT_WIDTH_16) return MPP_ERR_PARAM;
    if (frame.u32SoundMode > AUDIO_SOUND_STEREO || (stereo && channels == Channels::one))
        return MPP_ERR_PARAM;
    if (frame.u32Len == 0 || frame.u32Len % sizeof(int16_t) != 0) return MPP_ERR_PARAM;
    if (frame.u32Len > AUDIO_MAX_POINTS * sizeof(int16_t)) return MPP_ERR_PARAM;
    const uint8_t *left = frame.pu8VirtAddr[0], *right = stereo ? frame.pu8VirtAddr[1] : nullptr;
    if (!left || (stereo && !right)) return MPP_ERR_NULL;
    if ((uintptr_t(left) | uintptr_t(right)) % alignof(int16_t) != 0) return MPP_ERR_PARAM;
    pcm = {reinterpret_cast<const int16_t*>(left), reinterpret_cast<const int16_t*>(right),
           frame.u32Len / sizeof(int16_t)};
    return 0;
}

} // namespace zep::adp

int32_t GetFrmInfo(void* pDecoder, void* pInfo)
{
    if (!pInfo) return zep::adp::decoder_error(MPP_ERR_NULL);
    constexpr ADEC_FRAME_INFO_S kLpcm = {2, 1};
    const auto* head = static_cast<const zep::adp::DecoderHead*>(pDecoder);
    *static_cast<ADEC_FRAME_INFO_S*>(pInfo) = head ? head->info : kLpcm;
    return 0;
}

int32_t AUDIO_ADP_RegisterEncoders(int32_t (*pfnRegister)(int32_t*, const AENC_ENCODER_S*))
{
    return register_all(kEncoders, pfnRegister);
}

int32_t AUDIO_ADP_RegisterDecoders(int32_t (*pfnRegister)(int32_t*, const ADEC_DECODER_S*))
{
    return register_all(kDecoders, pfnRegister);
}
