// IMA/DVI4 ADPCM.
//
// A code is a sign and three bits of magnitude; the difference that it stands for, the next step index and
// the next step follow from magnitude and index alone. All three are looked up, magnitude by magnitude, so
// that the only load between one sample and the next is at [row of the magnitude][index].
#include "mpi/audio/adpcm.h"

#include "common/base/bytes.hpp"

#include <algorithm>
#include <array>

namespace {

constexpr int kSteps = 89;
constexpr int kMagnitudes = 8;

constexpr std::array<int16_t, kSteps> kStep = {
    7,    8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,    25,   28,
    31,   34,    37,    41,    45,    50,    55,    60,    66,    73,    80,    88,    97,    107,  118,
    130,  143,   157,   173,   190,   209,   230,   253,   279,   307,   337,   371,   408,   449,  494,
    544,  598,   658,   724,   796,   876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878, 2066,
    2272, 2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845, 8630,
    9493, 10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};

constexpr int kIndexChange[kMagnitudes] = {-1, -1, -1, -1, 2, 4, 6, 8};

template<class T> using Rows = std::array<std::array<T, kSteps>, kMagnitudes>;

template<class T, class F> constexpr Rows<T> make_rows(F f)
{
    Rows<T> rows{};
    for (int m = 0; m < kMagnitudes; ++m)
        for (int i = 0; i < kSteps; ++i) rows[size_t(m)][size_t(i)] = T(f(m, i));
    return rows;
}

constexpr int next_index(int m, int i) { return std::clamp(i + kIndexChange[m], 0, kSteps - 1); }
constexpr int difference(int m, int i)
{
    const int step = kStep[size_t(i)];
    return (step >> 3) + (m & 4 ? step : 0) + (m & 2 ? step >> 1 : 0) + (m & 1 ? step >> 2 : 0);
}

constexpr Rows<uint8_t> kNextIndex = make_rows<uint8_t>(next_index);
constexpr Rows<uint16_t> kDifference = make_rows<uint16_t>(difference);
constexpr Rows<int16_t> kNextStep =
    make_rows<int16_t>([](int m, int i) { return kStep[size_t(next_index(m, i))]; });

// Overflow is rare, and a branch keeps both comparisons off the path from sample to sample.
inline int saturate(int sample)
{
    if (uint32_t(sample + 32768) > 65535) [[unlikely]]
        return sample < 0 ? -32768 : 32767;
    return sample;
}

class Encoder {
public:
    explicit Encoder(const ADPCM_STATE_S& s)
        : predictor_(s.s16Predictor), index_(s.u8Index), step_(kStep[s.u8Index])
    {
    }
    void save(ADPCM_STATE_S& s) const
    {
        s.s16Predictor = int16_t(predictor_);
        s.u8Index = uint8_t(index_);
    }
    uint32_t code(int sample)
    {
        const int d = sample - predictor_;
        const int sign = d >> 31;
        int rest = (d ^ sign) - sign;
        uint32_t m = 0;
        m = take(rest, step_) << 2;
        m |= take(rest, step_ >> 1) << 1;
        m |= take(rest, step_ >> 2);
        // What was taken, and half of the last step: the difference that the decoder will add.
        const int error = rest - (step_ >> 3);
        predictor_ = saturate(sample - ((error ^ sign) - sign));
        step_ = kNextStep[m][index_];
        index_ = kNextIndex[m][index_];
        return m | (uint32_t(sign) & 8);
    }

private:
    static uint32_t take(int& rest, int step)
    {
        const int left = rest - step;
        const bool taken = left >= 0;
        rest = taken ? left : rest;
        return taken;
    }

    int predictor_;
    size_t index_;
    int step_;
};

class Decoder {
public:
    explicit Decoder(const ADPCM_STATE_S& s) : predictor_(s.s16Predictor), index_(s.u8Index) {}
    void save(ADPCM_STATE_S& s) const
    {
        s.s16Predictor = int16_t(predictor_);
        s.u8Index = uint8_t(index_);
    }
    int16_t sample(uint32_t code)
    {
        const uint32_t m = code & 7;
        const int sign = -int(code >> 3);
        const int d = kDifference[m][index_];
        index_ = kNextIndex[m][index_];
        predictor_ = saturate(predictor_ + ((d ^ sign) - sign));
        return int16_t(predictor_);
    }

private:
    int predictor_;
    size_t index_;
};

void put_header(const ADPCM_STATE_S& state, uint8_t* octets)
{
    const uint16_t predictor = uint16_t(state.s16Predictor);
    if (state.u8Format == ADPCM_DVI4)
        zep::store_be16(octets, predictor);
    else
        zep::store_le16(octets, predictor);
    octets[2] = state.u8Index;
    octets[3] = 0;
}

bool take_header(ADPCM_STATE_S& state, const uint8_t* octets)
{
    if (octets[2] >= kSteps) return false;
    const bool dvi4 = state.u8Format == ADPCM_DVI4;
    state.s16Predictor = int16_t(dvi4 ? zep::load_be16(octets) : zep::load_le16(octets));
    state.u8Index = octets[2];
    return true;
}

template<bool kUpperFirst>
void encode_pairs(ADPCM_STATE_S& state, const int16_t* pcm, size_t points, uint8_t* octets)
{
    Encoder encoder(state);
    for (size_t i = 0; i + 1 < points; i += 2) {
        const uint32_t first = encoder.code(pcm[i]), second = encoder.code(pcm[i + 1]);
        *octets++ = uint8_t(kUpperFirst ? first << 4 | second : second << 4 | first);
    }
    encoder.save(state);
}

template<bool kUpperFirst>
void decode_pairs(ADPCM_STATE_S& state, const uint8_t* octets, size_t bytes, int16_t* pcm)
{
    Decoder decoder(state);
    for (size_t i = 0; i < bytes; ++i, pcm += 2) {
        const uint32_t upper = octets[i] >> 4, lower = octets[i] & 15;
        pcm[0] = decoder.sample(kUpperFirst ? upper : lower);
        pcm[1] = decoder.sample(kUpperFirst ? lower : upper);
    }
    decoder.save(state);
}

} // namespace

int ADPCM_Init(ADPCM_STATE_S* state, uint32_t format)
{
    if (format > ADPCM_IMA_BLOCK) return -1;
    *state = ADPCM_STATE_S{};
    state->u8Format = uint8_t(format);
    return 0;
}

size_t ADPCM_FrameBytes(uint32_t format, size_t points)
{
    if (points == 0 || format > ADPCM_IMA_BLOCK || points % 2 != format) return 0;
    return ADPCM_HEADER_BYTES + points / 2;
}

size_t ADPCM_FramePoints(uint32_t format, size_t bytes)
{
    if (bytes < ADPCM_HEADER_BYTES || format > ADPCM_IMA_BLOCK) return 0;
    return 2 * (bytes - ADPCM_HEADER_BYTES) + format;
}

size_t ADPCM_Encode(ADPCM_STATE_S* state, const int16_t* pcm, size_t points, uint8_t* octets)
{
    const size_t bytes = ADPCM_FrameBytes(state->u8Format, points);
    if (bytes == 0) return 0;
    if (state->u8Format == ADPCM_IMA_BLOCK) state->s16Predictor = pcm[0];
    put_header(*state, octets);
    octets += ADPCM_HEADER_BYTES;
    if (state->u8Format == ADPCM_DVI4)
        encode_pairs<true>(*state, pcm, points, octets);
    else
        encode_pairs<false>(*state, pcm + 1, points - 1, octets);
    return bytes;
}

size_t ADPCM_Decode(ADPCM_STATE_S* state, const uint8_t* octets, size_t bytes, int16_t* pcm)
{
    const size_t points = ADPCM_FramePoints(state->u8Format, bytes);
    if (points == 0 || !take_header(*state, octets)) return 0;
    octets += ADPCM_HEADER_BYTES;
    bytes -= ADPCM_HEADER_BYTES;
    if (state->u8Format == ADPCM_DVI4) {
        decode_pairs<true>(*state, octets, bytes, pcm);
        return points;
    }
    *pcm++ = state->s16Predictor;
    decode_pairs<false>(*state, octets, bytes, pcm);
    return points;
}
