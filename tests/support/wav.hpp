// Sound files of 16 bits, as the tests write and read them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using Samples = std::vector<int16_t>;

struct Wav {
    uint32_t rate = 0;
    uint16_t channels = 0;
    Samples samples; // of all channels, interleaved
};

template<class T> void append(std::string& out, T value)
{
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

inline std::string wav_bytes(const Samples& samples, uint32_t rate, uint16_t channels = 1)
{
    const auto size = uint32_t(samples.size() * 2);
    std::string out = "RIFF";
    append(out, size + 36);
    out += "WAVEfmt ";
    append(out, uint32_t(16));
    append(out, uint16_t(1));
    append(out, channels);
    append(out, rate);
    append(out, rate * 2 * channels);
    append(out, uint16_t(2 * channels));
    append(out, uint16_t(16));
    out += "data";
    append(out, size);
    out.append(reinterpret_cast<const char*>(samples.data()), size);
    return out;
}

// Nothing when the header does not fit the file.
inline Wav parse_wav(const std::string& bytes)
{
    Wav wav;
    uint32_t size = 0;
    if (bytes.size() < 44) return wav;
    memcpy(&wav.channels, &bytes[22], 2);
    memcpy(&wav.rate, &bytes[24], 4);
    memcpy(&size, &bytes[40], 4);
    if (size != bytes.size() - 44) return {};
    wav.samples.resize(size / 2);
    if (size) memcpy(wav.samples.data(), &bytes[44], size);
    return wav;
}

// Samples that tell their place.
inline Samples ramp(size_t count, int start = 1)
{
    Samples out(count);
    for (size_t i = 0; i < count; ++i) out[i] = int16_t((start + int(i) * 37) % 30000);
    return out;
}
