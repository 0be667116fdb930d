// G.711 A-law and mu-law.
//
// Both laws are concave and piecewise linear in the magnitude: segment k is the line (m >> k) + 16 * c. The
// code of a magnitude is therefore the least of all the lines there, which needs neither a table nor a
// branch. Where the compiler has 16-bit lanes that form runs several samples at once; elsewhere the segment
// comes from a count of leading zeros. Both give the same octet for all 65,536 samples.
#include "mpi/audio/g711.h"

#include <algorithm>
#include <bit>

namespace {

#if defined(__SSE2__) || defined(__ARM_NEON)
constexpr bool kLanes = true;
#else
constexpr bool kLanes = false;
#endif

constexpr size_t kBlock = 32; // a trip count that compilers turn into whole vectors

struct ALaw {
    static constexpr const int16_t* kDecode = a2l_table;

    static int16_t least_line(int16_t v)
    {
        int16_t code = v;
        for (int k = 1; k < 7; ++k) code = std::min<int16_t>(code, int16_t((v >> k) + 16 * k));
        return code;
    }
    static int by_leading_zeros(int v)
    {
        const int shift = std::max(27 - std::countl_zero(uint32_t(v)), 0);
        return (v >> shift) + 16 * shift;
    }
    static uint8_t encode(int16_t sample)
    {
        const int16_t sign = int16_t(sample >> 15);
        const int16_t v = int16_t((sample ^ sign) >> 4);
        const int code = kLanes ? least_line(v) : by_leading_zeros(v);
        return uint8_t(code ^ 0xd5 ^ (sign & 0x80));
    }
};

struct MuLaw {
    static constexpr const int16_t* kDecode = u2l_table;
    static constexpr int16_t kBias = 33;
    static constexpr int16_t kMax = 8191;

    static int16_t least_line(int16_t v)
    {
        int16_t line = int16_t(v >> 1);
        int16_t code = int16_t(line - 16);
        for (int k = 2; k < 9; ++k) {
            line = int16_t(line >> 1);
            code = std::min(code, int16_t(line + 16 * (k - 2)));
        }
        return code;
    }
    static int by_leading_zeros(int v)
    {
        const int shift = 27 - std::countl_zero(uint32_t(v));
        return (v >> shift) + 16 * (shift - 2);
    }
    static uint8_t encode(int16_t sample)
    {
        const int16_t sign = int16_t(sample >> 15);
        const int16_t v = std::min(int16_t(((sample ^ sign) >> 2) + kBias), kMax);
        const int code = kLanes ? least_line(v) : by_leading_zeros(v);
        return uint8_t(code ^ 0xff ^ (sign & 0x80));
    }
};

template<class Law> void encode(const int16_t* __restrict pcm, uint8_t* __restrict octets, size_t points)
{
    for (; points >= kBlock; points -= kBlock, pcm += kBlock, octets += kBlock)
        for (size_t i = 0; i < kBlock; ++i) octets[i] = Law::encode(pcm[i]);
    for (size_t i = 0; i < points; ++i) octets[i] = Law::encode(pcm[i]);
}

template<class Law> void decode(const uint8_t* __restrict octets, int16_t* __restrict pcm, size_t points)
{
    for (size_t i = 0; i < points; ++i) pcm[i] = Law::kDecode[octets[i]];
}

} // namespace

void G711_EncodeA(const int16_t* pcm, uint8_t* octets, size_t points) { encode<ALaw>(pcm, octets, points); }
void G711_EncodeU(const int16_t* pcm, uint8_t* octets, size_t points) { encode<MuLaw>(pcm, octets, points); }
void G711_DecodeA(const uint8_t* octets, int16_t* pcm, size_t points) { decode<ALaw>(octets, pcm, points); }
void G711_DecodeU(const uint8_t* octets, int16_t* pcm, size_t points) { decode<MuLaw>(octets, pcm, points); }

void G711_Init(G711_STATE_S* state, uint32_t law)
{
    *state = {law == G711_MU_LAW ? G711_MU_LAW : G711_A_LAW, 0};
}

void G711_Encode(const G711_STATE_S* state, const int16_t* pcm, uint8_t* octets, size_t points)
{
    (state->u32Law == G711_MU_LAW ? G711_EncodeU : G711_EncodeA)(pcm, octets, points);
}

void G711_Decode(const G711_STATE_S* state, const uint8_t* octets, int16_t* pcm, size_t points)
{
    (state->u32Law == G711_MU_LAW ? G711_DecodeU : G711_DecodeA)(octets, pcm, points);
}
