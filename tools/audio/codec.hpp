// The voice codecs by name, frame by frame, and the sample rates of a camera.
#pragma once

#include "base/mpp_audio.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zaudio {

struct CodecName {
    const char* name; // as the command line has it
    int32_t type;     // payload type
};
#define ZAUDIO_CODEC(TYPE, NUMBER, NAME) {NAME, TYPE},
inline constexpr CodecName kCodecNames[] = {MPP_PAYLOAD_TYPES(ZAUDIO_CODEC)};
#undef ZAUDIO_CODEC
std::string codec_names(const char* between);

// The rates of the camera's codec chip, in Hz.
inline constexpr int kRates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
bool is_rate(int rate);
std::string rate_names(const char* between);

// One direction each; neither shares anything with another.
class Encoder {
public:
    explicit Encoder(int32_t type);
    ~Encoder();
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    // Throws std::runtime_error for a frame that the codec cannot carry.
    std::vector<uint8_t> encode(std::vector<int16_t> frame);

private:
    struct State;
    std::unique_ptr<State> state_;
};

class Decoder {
public:
    explicit Decoder(int32_t type);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    // Damaged frames give fewer samples or none.
    std::vector<int16_t> decode(std::vector<uint8_t> frame);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace zaudio
