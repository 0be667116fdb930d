// Linear PCM, 16-bit little-endian.
#include "mpi/audio/lpcm.h"

namespace {

inline uint8_t* put(uint8_t* octets, int16_t sample)
{
    octets[0] = uint8_t(sample);
    octets[1] = uint8_t(sample >> 8);
    return octets + 2;
}

} // namespace

void LPCM_Encode(const int16_t* left, const int16_t* right, size_t points, uint8_t* octets)
{
    for (size_t i = 0; i < points; ++i) {
        octets = put(octets, left[i]);
        if (right) octets = put(octets, right[i]);
    }
}

void LPCM_Decode(const uint8_t* octets, size_t samples, int16_t* pcm)
{
    for (size_t i = 0; i < samples; ++i) pcm[i] = int16_t(octets[2 * i] | octets[2 * i + 1] << 8);
}
