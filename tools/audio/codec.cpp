// The codecs of the product, frame by frame.
#include "tools/audio/codec.hpp"

#include "mpi/audio/audio_voice_adp.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace zaudio {

namespace {

std::vector<AENC_ENCODER_S> encoders;
std::vector<ADEC_DECODER_S> decoders;

int32_t keep_encoder(int32_t* handle, const AENC_ENCODER_S* encoder)
{
    *handle = int32_t(encoders.size());
    encoders.push_back(*encoder);
    return 0;
}

int32_t keep_decoder(int32_t* handle, const ADEC_DECODER_S* decoder)
{
    *handle = int32_t(decoders.size());
    decoders.push_back(*decoder);
    return 0;
}

template<class Descriptor> Descriptor find(const std::vector<Descriptor>& all, int32_t type)
{
    for (const Descriptor& descriptor : all)
        if (descriptor.enType == type) return descriptor;
    throw std::runtime_error("no codec of type " + std::to_string(type));
}

AENC_ENCODER_S find_encoder(int32_t type)
{
    if (encoders.empty()) AUDIO_ADP_RegisterEncoders(keep_encoder);
    return find(encoders, type);
}

ADEC_DECODER_S find_decoder(int32_t type)
{
    if (decoders.empty()) AUDIO_ADP_RegisterDecoders(keep_decoder);
    return find(decoders, type);
}

} // namespace

bool is_rate(int rate) { return std::find(std::begin(kRates), std::end(kRates), rate) != std::end(kRates); }

std::string codec_names(const char* between)
{
    std::string names;
    for (const CodecName& codec : kCodecNames) {
        if (!names.empty()) names += between;
        names += codec.name;
    }
    return names;
}

std::string rate_names(const char* between)
{
    std::string names;
    for (int rate : kRates) {
        if (!names.empty()) names += between;
        names += std::to_string(rate);
    }
    return names;
}

// The attribute is that of the camera's channels: first form, lowest rate.
struct Encoder::State {
    AENC_ENCODER_S codec;
    uint32_t attribute = 0;
    void* handle = nullptr;
};

Encoder::Encoder(int32_t type) : state_(new State{find_encoder(type)})
{
    state_->codec.pfnOpenEncoder(&state_->attribute, &state_->handle);
}

Encoder::~Encoder() { state_->codec.pfnCloseEncoder(state_->handle); }

std::vector<uint8_t> Encoder::encode(std::vector<int16_t> frame)
{
    AUDIO_FRAME_S record = {};
    record.u32BitWidth = AUDIO_BIT_WIDTH_16;
    record.pu8VirtAddr[0] = reinterpret_cast<uint8_t*>(frame.data());
    record.u32Len = uint32_t(frame.size() * sizeof(int16_t));
    auto length = state_->codec.u32MaxFrmLen;
    std::vector<uint8_t> out(length);
    if (state_->codec.pfnEncodeFrm(state_->handle, &record, out.data(), &length) != 0)
        throw std::runtime_error("a frame of " + std::to_string(frame.size()) +
                                 " points does not fit the codec");
    out.resize(length);
    return out;
}

struct Decoder::State {
    ADEC_DECODER_S codec;
    uint32_t attribute = 0;
    void* handle = nullptr;
};

Decoder::Decoder(int32_t type) : state_(new State{find_decoder(type)})
{
    state_->codec.pfnOpenDecoder(&state_->attribute, &state_->handle);
}

Decoder::~Decoder() { state_->codec.pfnCloseDecoder(state_->handle); }

std::vector<int16_t> Decoder::decode(std::vector<uint8_t> frame)
{
    std::vector<int16_t> out;
    uint8_t* position = frame.data();
    auto left = int32_t(frame.size());
    for (int32_t before = -1; left > 0 && left != before;) {
        before = left;
        std::vector<uint16_t> samples(2 * AUDIO_MAX_POINTS);
        uint32_t bytes = 0, channels = 1;
        if (state_->codec.pfnDecodeFrm(state_->handle, &position, &left, samples.data(), &bytes, &channels) !=
            0)
            break;
        out.insert(out.end(), samples.begin(), samples.begin() + long(bytes / 2));
    }
    return out;
}

} // namespace zaudio
