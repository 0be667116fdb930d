// The codecs, sample by sample: sums over what the Recommendations' own arithmetic makes of the same input, computed
// once with the blocks, decision values and tables as they are printed there. tests/peers compares with other programs.
#include "mpi/audio/adpcm.h"
#include "mpi/audio/g711.h"
#include "mpi/audio/g726.h"
#include "tests/unit/mpp/codec_signals.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

using namespace codec_test;

namespace {

using Octets = std::vector<uint8_t>;
using Samples = std::vector<int16_t>;

enum Family { kG711, kG726, kAdpcm };
struct Codec {
    const char* name;
    Family family;
    uint32_t bits, form; // of a sample; law, packing or format
    uint32_t stream, decoded, any;
};
constexpr Codec kCodecs[] = {
    {"A-law", kG711, 8, G711_A_LAW, 0xee8d67b9, 0x92fbe8c9, 0x72d3fc48},
    {"mu-law", kG711, 8, G711_MU_LAW, 0xf9c61592, 0x5a865ef0, 0xbe4ccba2},
    {"G.726 16", kG726, 2, G726_PACK_RFC3551, 0xd966e66e, 0xb94290fa, 0x715f9426},
    {"G.726 24", kG726, 3, G726_PACK_RFC3551, 0xf07b21ff, 0xd9875792, 0x5d711ac7},
    {"G.726 32", kG726, 4, G726_PACK_RFC3551, 0x012f6b8c, 0x03db768e, 0x4c855290},
    {"G.726 40", kG726, 5, G726_PACK_RFC3551, 0x8505c8a9, 0x1b5f2bc8, 0xa7432fb6},
    {"G.726 24, first code on top", kG726, 3, G726_PACK_AAL2, 0x001492c5, 0xd9875792, 0xc3e4e93a},
    {"DVI4", kAdpcm, 4, ADPCM_DVI4, 0xc7167374, 0xae8aa131, 0xd9d8a90f},
    {"IMA block", kAdpcm, 4, ADPCM_IMA_BLOCK, 0x7013a7da, 0xafdc52de, 0x9bcf2cb4},
};

// One direction of one stream.
class Coder {
public:
    explicit Coder(const Codec& codec) : family_(codec.family)
    {
        G711_Init(&g711_, codec.form);
        EXPECT_EQ(family_ == kG726 ? G726_Init(&g726_, codec.bits, codec.form) : 0, 0);
        EXPECT_EQ(ADPCM_Init(&adpcm_, codec.form), 0);
    }
    size_t encode(const int16_t* pcm, size_t points, uint8_t* octets)
    {
        if (family_ == kG726) return G726_Encode(&g726_, pcm, points, octets);
        if (family_ == kAdpcm) return ADPCM_Encode(&adpcm_, pcm, points, octets);
        G711_Encode(&g711_, pcm, octets, points);
        return points;
    }
    size_t decode(const uint8_t* octets, size_t bytes, int16_t* pcm)
    {
        if (family_ == kG726) return G726_Decode(&g726_, octets, bytes, pcm);
        if (family_ == kAdpcm) return ADPCM_Decode(&adpcm_, octets, bytes, pcm);
        G711_Decode(&g711_, octets, pcm, bytes);
        return bytes;
    }

private:
    Family family_;
    G711_STATE_S g711_;
    G726_STATE_S g726_;
    ADPCM_STATE_S adpcm_;
};

// Points of a frame, and its bytes.
size_t points_of(const Codec& c) { return c.family == kAdpcm && c.form == ADPCM_IMA_BLOCK ? 161 : 160; }
size_t bytes_of(const Codec& c, size_t points)
{
    return c.family == kAdpcm ? ADPCM_FrameBytes(c.form, points) : points * c.bits / 8;
}

// Whole frames; what stands behind each is left alone.
Octets encode(const Codec& codec, const Samples& pcm, size_t points)
{
    Coder coder(codec);
    Octets stream;
    for (size_t at = 0; at + points <= pcm.size(); at += points) {
        Octets frame(bytes_of(codec, points) + 1, 0xee);
        EXPECT_EQ(coder.encode(&pcm[at], points, frame.data()), frame.size() - 1);
        EXPECT_EQ(frame.back(), 0xee);
        stream.insert(stream.end(), frame.begin(), frame.end() - 1);
    }
    return stream;
}

Samples decode(const Codec& codec, const Octets& stream)
{
    Coder coder(codec);
    const size_t points = points_of(codec), bytes = bytes_of(codec, points);
    Samples pcm;
    for (size_t at = 0; at + bytes <= stream.size(); at += bytes) {
        Samples frame(points + 1, 77);
        EXPECT_EQ(coder.decode(&stream[at], bytes, frame.data()), points);
        EXPECT_EQ(frame.back(), 77);
        pcm.insert(pcm.end(), frame.begin(), frame.end() - 1);
    }
    return pcm;
}

// Every sample value that there is, then all signals, overload included.
Samples sound()
{
    Samples all(65536);
    std::iota(all.begin(), all.end(), int16_t(-32768));
    for (int s = 0; s < kSignals; ++s) {
        const Samples one = signal(Waveform(s), 24000);
        all.insert(all.end(), one.begin(), one.end());
    }
    return all;
}

// Codes that no encoder sends drive a predictor over its edges. A header's step index is one that exists.
Octets any_octets(const Codec& codec)
{
    Octets octets(240000);
    uint32_t r = 0;
    for (size_t i = 0; i < octets.size(); ++i) {
        r = r * 1664525u + 1013904223u;
        const uint8_t patterns[] = {uint8_t(r >> 24), 0x77, 0xff, uint8_t(i / 3000 % 2 ? 0x33 : r >> 24)};
        octets[i] = patterns[i / 60000];
        if (codec.family == kAdpcm && i % 84 == 2) octets[i] %= 89;
    }
    return octets;
}

} // namespace

TEST(Codecs, StreamsAndSamplesAreTheRecommendationsOverloadIncluded)
{
    for (const Codec& codec : kCodecs) {
        SCOPED_TRACE(codec.name);
        const Octets stream = encode(codec, sound(), points_of(codec));
        EXPECT_EQ(crc32(stream), codec.stream);
        EXPECT_EQ(crc32(bytes_of(decode(codec, stream))), codec.decoded);
        EXPECT_EQ(crc32(bytes_of(decode(codec, any_octets(codec)))), codec.any);
    }
}

TEST(Codecs, FrameLengthDoesNotChangeTheCodes)
{
    const Samples pcm = signal(kTilted, 960);
    for (const Codec& codec : kCodecs)
        for (size_t points : {1u, 8u, 24u, 31u, 32u, 33u, 65u, 80u, 160u, 320u, 480u}) {
            if (codec.family == kAdpcm || (codec.family == kG726 && points % 8))
                continue; // header; whole octets
            Octets whole = encode(codec, pcm, 960);
            whole.resize(bytes_of(codec, pcm.size() / points * points));
            EXPECT_EQ(encode(codec, pcm, points), whole) << codec.name << ", " << points;
        }
}

// Direct conversions and the decoders' tables.
TEST(Codecs, TablesOfG711)
{
    EXPECT_EQ(crc32({a2u_table, a2u_table + 256}), 0xe5603797);
    EXPECT_EQ(crc32({u2a_table, u2a_table + 256}), 0x67c98e83);
    Octets all(256);
    std::iota(all.begin(), all.end(), uint8_t(0));
    Samples pcm(256);
    G711_DecodeA(all.data(), pcm.data(), 256);
    EXPECT_EQ(pcm, Samples(a2l_table, a2l_table + 256));
    G711_DecodeU(all.data(), pcm.data(), 256);
    EXPECT_EQ(pcm, Samples(u2l_table, u2l_table + 256));
}

TEST(Codecs, LengthsAndHeadersThatAdpcmCannotCarryAreRefused)
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
        EXPECT_EQ(ADPCM_FramePoints(c.format, c.bytes), c.bytes ? c.points : 0) << c.points;
    }
    ADPCM_STATE_S state;
    EXPECT_EQ(ADPCM_Init(&state, 2), -1);
    ASSERT_EQ(ADPCM_Init(&state, ADPCM_DVI4), 0);
    const uint8_t frame[] = {0, 0, 89, 0, 0x77}; // a step index that does not exist
    int16_t pcm[2];
    for (size_t bytes : {3, 5}) EXPECT_EQ(ADPCM_Decode(&state, frame, bytes, pcm), 0u);
}

TEST(Codecs, WhatIsNoWholeOctetOrNoRateOfG726IsRefusedAndChangesNothing)
{
    G726_STATE_S state;
    for (uint32_t bits : {0u, 1u, 6u}) EXPECT_EQ(G726_Init(&state, bits, 0), -1);
    EXPECT_EQ(G726_Init(&state, 4, 2), -1);
    ASSERT_EQ(G726_Init(&state, 3, G726_PACK_RFC3551), 0);
    const G726_STATE_S before = state;
    const int16_t pcm[9] = {};
    uint8_t octets[5] = {0xee, 0xee, 0xee, 0xee, 0xee};
    EXPECT_EQ(G726_Encode(&state, pcm, 9, octets), 0u);
    EXPECT_EQ(octets[0], 0xee);
    EXPECT_EQ(memcmp(&before, &state, sizeof state), 0);
    int16_t out[9] = {1, 1, 1, 1, 1, 1, 1, 1, 77};
    EXPECT_EQ(G726_Decode(&state, octets, 5, out), 8u); // 3 octets are whole, 2 are a tail
    EXPECT_EQ(out[8], 77);
}
