// Signals from integer arithmetic alone, the same on every target, and a sum over what codecs make of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace codec_test {

enum Waveform { kLoudNoise, kQuietNoise, kSquare, kTilted, kSignals };

// Noise at full scale; noise 12 bits below; a square wave at full scale; noise through a leaky integrator,
// which tilts its spectrum like speech.
inline std::vector<int16_t> signal(Waveform which, size_t points)
{
    uint32_t r = 12345;
    int32_t sum = 0;
    std::vector<int16_t> x(points);
    for (size_t i = 0; i < points; ++i) {
        r = r * 1664525u + 1013904223u;
        const int16_t noise = int16_t(r >> 16);
        sum = sum - (sum >> 3) + (noise >> 3);
        const int16_t values[kSignals] = {noise, int16_t(noise >> 12), int16_t(i / 37 % 2 ? 32767 : -32768),
                                          int16_t(sum)};
        x[i] = values[which];
    }
    return x;
}

// CRC-32 as Ethernet has it.
inline uint32_t crc32(const std::vector<uint8_t>& octets)
{
    uint32_t crc = ~0u;
    for (uint8_t octet : octets) {
        crc ^= octet;
        for (int i = 0; i < 8; ++i) crc = crc >> 1 ^ (crc & 1 ? 0xedb88320u : 0);
    }
    return ~crc;
}

inline std::vector<uint8_t> bytes_of(const std::vector<int16_t>& samples)
{
    std::vector<uint8_t> octets;
    for (int16_t s : samples) {
        octets.push_back(uint8_t(s));
        octets.push_back(uint8_t(s >> 8));
    }
    return octets;
}

} // namespace codec_test
