// Linear PCM, 16-bit little-endian.
#include "mpi/audio/lpcm.h"

#include "common/base/bytes.hpp"

void LPCM_Encode(const int16_t* left, const int16_t* right, size_t points, uint8_t* octets)
{
    for (size_t i = 0; i < points; ++i) {
        zep::store_le16(octets, uint16_t(left[i]));
        octets += 2;
        if (!right) continue;
        zep::store_le16(octets, uint16_t(right[i]));
        octets += 2;
    }
}

void LPCM_Decode(const uint8_t* octets, size_t samples, int16_t* pcm)
{
    for (size_t i = 0; i < samples; ++i) pcm[i] = int16_t(zep::load_le16(octets + 2 * i));
}
