#include "mpi/audio/adpcm.h"
#include "tests/unit/mpp/codec_signals.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace codec_test;

namespace {

// The recommended practice, shift and add, sample by sample.
struct Reference {
    int predictor = 0, index = 0;

    static int step(int i)
    {
        static const int steps[] = {
            7,     8,     9,     10,    11,    12,    13,    14,    16,    17,    19,   21,    23,
            25,    28,    31,    34,    37,    41,    45,    50,    55,    60,    66,   73,    80,
            88,    97,    107,   118,   130,   143,   157,   173,   190,   209,   230,  253,   279,
            307,   337,   371,   408,   449,   494,   544,   598,   658,   724,   796,  876,   963,
            1060,  1166,  1282,  1411,  1552,  1707,  1878,  2066,  2272,  2499,  2749, 3024,  3327,
            3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845,  8630,  9493, 10442, 11487,
            12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};
        return steps[i];
    }
    int decode(int code)
    {
        int d = step(index) >> 3;
        if (code & 4) d += step(index);
        if (code & 2) d += step(index) >> 1;
        if (code & 1) d += step(index) >> 2;
        predictor = std::clamp(predictor + (code & 8 ? -d : d), -32768, 32767);
        index = std::clamp(index + ((code & 7) < 4 ? -1 : 2 * (code & 7) - 6), 0, 88);
        return predictor;
    }
    int encode(int sample)
    {
        int d = sample - predictor, s = step(index), code = d < 0 ? 8 : 0;
        d = std::abs(d);
        for (int bit = 4; bit; bit >>= 1, s >>= 1)
            if (d >= s) {
                code |= bit;
                d -= s;
            }
        decode(code);
        return code;
    }
};

int code_at(const std::vector<uint8_t>& frame, size_t i, bool upper_first)
{
    const uint8_t octet = frame[ADPCM_HEADER_BYTES + i / 2];
    return (i % 2 == 0) == upper_first ? octet >> 4 : octet & 15;
}

std::vector<uint8_t> encode(ADPCM_STATE_S& state, const int16_t* pcm, size_t points)
{
    std::vector<uint8_t> frame(ADPCM_FrameBytes(state.u8Format, points));
    EXPECT_EQ(ADPCM_Encode(&state, pcm, points, frame.data()), frame.size());
    return frame;
}

} // namespace

TEST(Adpcm, HeaderCodesAndSamplesEqualTheRecommendedPracticeOverloadIncluded)
{
    for (int s = 0; s < kSignals; ++s)
        for (uint32_t format : {uint32_t(ADPCM_DVI4), uint32_t(ADPCM_IMA_BLOCK)}) {
            const bool dvi4 = format == ADPCM_DVI4;
            const size_t points = dvi4 ? 160 : 161;
            const auto pcm = signal(Signal(s), points * 50);
            ADPCM_STATE_S encoder, decoder;
            ADPCM_Init(&encoder, format);
            ADPCM_Init(&decoder, format);
            Reference ours, theirs;
            for (size_t at = 0; at < pcm.size(); at += points) {
                const auto frame = encode(encoder, &pcm[at], points);
                ASSERT_EQ(frame.size(), 84u);
                if (!dvi4) ours.predictor = theirs.predictor = pcm[at];
                ASSERT_EQ(int16_t(frame[dvi4 ? 0 : 1] << 8 | frame[dvi4 ? 1 : 0]), ours.predictor);
                ASSERT_EQ(frame[2], ours.index);
                ASSERT_EQ(frame[3], 0);
                std::vector<int16_t> back(points + 1, 77);
                ASSERT_EQ(ADPCM_Decode(&decoder, frame.data(), frame.size(), back.data()), points);
                for (size_t i = dvi4 ? 0 : 1; i < points; ++i) {
                    const int code = code_at(frame, dvi4 ? i : i - 1, dvi4);
                    ASSERT_EQ(code, ours.encode(pcm[at + i])) << "signal " << s << ", sample " << at + i;
                    ASSERT_EQ(back[i], theirs.decode(code));
                }
                ASSERT_EQ(back[points], 77);
                ASSERT_EQ(dvi4 ? 0 : back[0], dvi4 ? 0 : pcm[at]);
            }
        }
}

// Sums of libspandsp's DVI4 frames of 160 points for the same signals.
TEST(Adpcm, Dvi4StreamsEqualThoseOfAnIndependentImplementation)
{
    const uint32_t sums[kSignals] = {0x5AA1C909, 0xB3B61BD3, 0x73E051D8, 0xBB92ED46};
    for (int s = 0; s < kSignals; ++s) {
        const auto pcm = signal(Signal(s), 8000);
        ADPCM_STATE_S state;
        ADPCM_Init(&state, ADPCM_DVI4);
        std::vector<uint8_t> stream;
        for (size_t at = 0; at < pcm.size(); at += 160) {
            const auto frame = encode(state, &pcm[at], 160);
            stream.insert(stream.end(), frame.begin(), frame.end());
        }
        EXPECT_EQ(crc32(stream), sums[s]) << "signal " << s;
    }
}

TEST(Adpcm, EveryCodeAtEveryIndexDecodesAsTheRecommendedPractice)
{
    for (int index = 0; index <= 88; ++index)
        for (int predictor : {-32768, -1, 0, 32767})
            for (int code = 0; code < 16; ++code) {
                ADPCM_STATE_S state;
                ADPCM_Init(&state, ADPCM_DVI4);
                const uint8_t frame[] = {uint8_t(predictor >> 8), uint8_t(predictor), uint8_t(index), 0xff,
                                         uint8_t(code << 4 | code)};
                int16_t pcm[2];
                ASSERT_EQ(ADPCM_Decode(&state, frame, sizeof frame, pcm), 2u);
                Reference reference{predictor, index};
                ASSERT_EQ(pcm[0], reference.decode(code));
                ASSERT_EQ(pcm[1], reference.decode(code));
                ASSERT_EQ(state.u8Index, reference.index);
            }
}

TEST(Adpcm, LengthsThatTheFormsCannotCarryAreRefused)
{
    const struct {
        uint32_t format;
        size_t points, bytes;
    } cases[] = {{ADPCM_DVI4, 0, 0},          {ADPCM_DVI4, 1, 0},
                 {ADPCM_DVI4, 2, 5},          {ADPCM_DVI4, 320, 164},
                 {ADPCM_DVI4, 952, 480},      {ADPCM_IMA_BLOCK, 0, 0},
                 {ADPCM_IMA_BLOCK, 1, 4},     {ADPCM_IMA_BLOCK, 160, 0},
                 {ADPCM_IMA_BLOCK, 505, 256}, {2, 160, 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(ADPCM_FrameBytes(c.format, c.points), c.bytes) << c.points;
        if (c.bytes) {
            EXPECT_EQ(ADPCM_FramePoints(c.format, c.bytes), c.points);
        }
    }
    ADPCM_STATE_S state;
    EXPECT_EQ(ADPCM_Init(&state, 2), -1);
}

TEST(Adpcm, ADamagedHeaderCostsItsFrameOnly)
{
    ADPCM_STATE_S encoder, decoder;
    ADPCM_Init(&encoder, ADPCM_DVI4);
    ADPCM_Init(&decoder, ADPCM_DVI4);
    const auto pcm = signal(kTilted, 320);
    auto first = encode(encoder, pcm.data(), 160);
    const auto second = encode(encoder, &pcm[160], 160);
    first[2] = 89;
    std::vector<int16_t> back(160);
    EXPECT_EQ(ADPCM_Decode(&decoder, first.data(), first.size(), back.data()), 0u);
    EXPECT_EQ(ADPCM_Decode(&decoder, second.data(), 3, back.data()), 0u);
    EXPECT_EQ(ADPCM_Decode(&decoder, second.data(), second.size(), back.data()), 160u);
    EXPECT_EQ(decoder.s16Predictor, encoder.s16Predictor);
    EXPECT_EQ(decoder.u8Index, encoder.u8Index);
}
