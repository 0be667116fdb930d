#include "mpi/audio/g726.h"
#include "tests/unit/mpp/codec_signals.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

using namespace codec_test;

namespace {

// The Recommendation block by block, in its own number formats, with none of the short cuts of the product.
class Reference {
public:
    explicit Reference(int bits) : bits_(bits) {}

    int encode(int sl)
    {
        const int y = mix();
        const int code = quantize(sl - estimate(6), y);
        update(code, y);
        return code;
    }
    int decode(int code) { return std::clamp(update(code, mix()), -8192, 8191); }

private:
    struct Tables {
        std::vector<int> decision, dequant, w, f;
    };
    static const Tables& tables(int bits)
    {
        static const Tables all[] = {
            {{261}, {116, 365}, {-22, 439}, {0, 7}},
            {{8, 218, 331}, {-2048, 135, 273, 373}, {-4, 30, 137, 582}, {0, 1, 2, 7}},
            {{-124, 80, 178, 246, 300, 349, 400},
             {-2048, 4, 135, 213, 273, 323, 373, 425},
             {-12, 18, 41, 64, 112, 198, 355, 1122},
             {0, 0, 0, 1, 1, 1, 3, 7}},
            {{-122, -16, 68, 139, 198, 250, 298, 339, 378, 413, 445, 475, 502, 528, 553},
             {-2048, -66, 28, 104, 169, 224, 274, 318, 358, 395, 429, 459, 488, 514, 539, 566},
             {14, 14, 24, 39, 40, 41, 58, 100, 141, 179, 219, 280, 358, 440, 529, 696},
             {0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 2, 3, 4, 5, 6, 6}},
        };
        return all[bits - 2];
    }

    static int bits_in(int magnitude)
    {
        int n = 0;
        for (; magnitude; magnitude >>= 1) ++n;
        return n;
    }
    struct Float {
        int sign = 0, exponent = 0, mantissa = 32;
    };
    static Float to_float(int magnitude, int sign)
    {
        const int e = bits_in(magnitude);
        return {sign, e, magnitude ? (magnitude << 6) >> e : 32};
    }
    static int fmult(int coefficient, const Float& s)
    {
        const int an = coefficient >> 2;
        const Float a = to_float(std::abs(an) & 0x1fff, an < 0);
        const int e = a.exponent + s.exponent, m = (a.mantissa * s.mantissa + 48) >> 4;
        const int magnitude = e <= 26 ? (m << 7) >> (26 - e) : ((m << 7) << (e - 26)) & 0x7fff;
        return a.sign ^ s.sign ? -magnitude : magnitude;
    }

    // SE of the first `taps` zeros and, with all six, both poles.
    int estimate(int taps, bool poles = true) const
    {
        int sum = 0;
        for (int i = 0; i < taps; ++i) sum += fmult(b_[i], dq_[i]);
        if (poles) sum += fmult(a_[0], sr_[0]) + fmult(a_[1], sr_[1]);
        return int16_t(sum) >> 1;
    }
    int mix() const
    {
        if (ap_ >= 256) return yu_;
        const int difference = yu_ - (yl_ >> 6), product = std::abs(difference) * (ap_ >> 2) >> 6;
        return (yl_ >> 6) + (difference < 0 ? -product : product);
    }
    int quantize(int d, int y) const
    {
        const int magnitude = std::abs(d), e = std::max(bits_in(magnitude) - 1, 0);
        const int log = (e << 7) + (((magnitude << 7) >> e) & 127) - (y >> 2);
        int i = 0;
        for (int level : tables(bits_).decision) i += log >= level;
        if (i == 0 && bits_ > 2) return (1 << bits_) - 1;
        return d < 0 ? (1 << bits_) - 1 - i : i;
    }

    int update(int code, int y)
    {
        const Tables& t = tables(bits_);
        const bool negative = code >> (bits_ - 1);
        const size_t i = size_t(negative ? (1 << bits_) - 1 - code : code);
        const int log = t.dequant[i] + (y >> 2);
        const int magnitude = log < 0 ? 0 : ((128 + (log & 127)) << 7) >> (14 - (log >> 7));
        const int dq = negative ? -magnitude : magnitude;
        const int sr = int16_t(estimate(6) + dq), partial = int16_t(estimate(6, false) + dq);

        const int whole = yl_ >> 15;
        const int threshold = whole > 9 ? 31 << 10 : (32 + (yl_ >> 10 & 31)) << whole;
        const bool transition = td_ && magnitude > (threshold + (threshold >> 1)) >> 1;

        yu_ = std::clamp(y + ((t.w[i] * 32 - y) >> 5), 544, 5120);
        yl_ += yu_ + (-yl_ >> 6);
        coefficients(negative, magnitude, partial, transition);
        for (int k = 5; k > 0; --k) dq_[k] = dq_[k - 1];
        dq_[0] = to_float(magnitude, negative);
        sr_[1] = sr_[0];
        sr_[0] = to_float(std::abs(sr) & 0x7fff, sr < 0);

        td_ = !transition && a_[1] < -11776;
        dms_ += (t.f[i] * 512 - dms_) >> 5;
        dml_ += (t.f[i] * 2048 - dml_) >> 7;
        const bool fast = y < 1536 || td_ || std::abs(dms_ * 4 - dml_) >= dml_ >> 3;
        ap_ = transition ? 256 : ap_ + (((fast ? 512 : 0) - ap_) >> 4);
        return sr;
    }
    void coefficients(bool negative, int magnitude, int partial, bool transition)
    {
        const bool pk0 = partial < 0;
        if (transition) {
            std::fill_n(a_, 2, 0);
            std::fill_n(b_, 6, 0);
        } else {
            int a2 = a_[1] - (a_[1] >> 7), a1 = a_[0] - (a_[0] >> 8);
            if (partial != 0) {
                const int fa1 = pk0 ^ pk_[0] ? a_[0] : -a_[0];
                a2 += fa1 < -8191 ? -256 : fa1 > 8191 ? 255 : fa1 >> 5;
                a2 += pk0 ^ pk_[1] ? -128 : 128;
                a1 += pk0 ^ pk_[0] ? -192 : 192;
            }
            a_[1] = std::clamp(a2, -12288, 12288);
            a_[0] = std::clamp(a1, a_[1] - 15360, 15360 - a_[1]);
            for (int k = 0; k < 6; ++k) {
                const int gain = magnitude == 0 ? 0 : negative == bool(dq_[k].sign) ? 128 : -128;
                b_[k] = int16_t(b_[k] + gain - (b_[k] >> (bits_ == 5 ? 9 : 8)));
            }
        }
        pk_[1] = pk_[0];
        pk_[0] = pk0;
    }

    int bits_;
    int yl_ = 34816, yu_ = 544, dms_ = 0, dml_ = 0, ap_ = 0, a_[2] = {}, b_[6] = {};
    Float dq_[6], sr_[2];
    bool pk_[2] = {}, td_ = false;
};

std::vector<uint8_t> encode(const std::vector<int16_t>& pcm, uint32_t bits,
                            uint32_t packing = G726_PACK_RFC3551, size_t frame = 160)
{
    G726_STATE_S state;
    EXPECT_EQ(G726_Init(&state, bits, packing), 0);
    std::vector<uint8_t> octets(pcm.size() * bits / 8);
    size_t done = 0;
    for (size_t i = 0; i < pcm.size(); i += frame)
        done += G726_Encode(&state, &pcm[i], std::min(frame, pcm.size() - i), &octets[done]);
    EXPECT_EQ(done, octets.size());
    return octets;
}

std::vector<int16_t> decode(const std::vector<uint8_t>& octets, uint32_t bits,
                            uint32_t packing = G726_PACK_RFC3551)
{
    G726_STATE_S state;
    G726_Init(&state, bits, packing);
    std::vector<int16_t> pcm(octets.size() * 8 / bits);
    const size_t frame = 20 * bits;
    size_t done = 0;
    for (size_t i = 0; i < octets.size(); i += frame)
        done += G726_Decode(&state, &octets[i], std::min(frame, octets.size() - i), &pcm[done]);
    EXPECT_EQ(done, pcm.size());
    return pcm;
}

std::vector<uint8_t> codes_of(const std::vector<uint8_t>& octets, uint32_t bits)
{
    std::vector<uint8_t> codes;
    uint32_t held = 0, count = 0;
    for (uint8_t octet : octets) {
        held |= uint32_t(octet) << count;
        for (count += 8; count >= bits; count -= bits, held >>= bits)
            codes.push_back(held & ((1u << bits) - 1));
    }
    return codes;
}

} // namespace

TEST(G726, CodesEqualTheRecommendationsBlocksOnEverySignal)
{
    for (int bits = 2; bits <= 5; ++bits)
        for (int s = 0; s < kSignals; ++s) {
            const auto pcm = signal(Signal(s), 24000);
            const auto codes = codes_of(encode(pcm, uint32_t(bits)), uint32_t(bits));
            Reference reference(bits);
            for (size_t i = 0; i < pcm.size(); ++i)
                ASSERT_EQ(codes[i], reference.encode(pcm[i] >> 2))
                    << bits << " bits, signal " << s << ", sample " << i;
        }
}

// Codes that no encoder sends drive the predictor over its edges; the arithmetic stays the Recommendation's.
TEST(G726, AnyOctetsDecodeAsTheRecommendationsBlocksDo)
{
    for (int bits = 2; bits <= 5; ++bits)
        for (uint32_t pattern : {0u, 1u, 2u, 3u}) {
            std::vector<uint8_t> octets(60000);
            uint32_t r = pattern;
            for (size_t i = 0; i < octets.size(); ++i) {
                r = r * 1664525u + 1013904223u;
                const uint8_t fixed[] = {uint8_t(r >> 24), 0x77, 0xff,
                                         uint8_t(i / 3000 % 2 ? 0x33 : r >> 24)};
                octets[i] = fixed[pattern];
            }
            const auto pcm = decode(octets, uint32_t(bits));
            const auto codes = codes_of(octets, uint32_t(bits));
            Reference reference(bits);
            for (size_t i = 0; i < codes.size(); ++i)
                ASSERT_EQ(pcm[i], reference.decode(codes[i]) * 4)
                    << bits << " bits, pattern " << pattern << ", sample " << i;
        }
}

// Sums of what libspandsp makes of the same signals, packed from the least significant bit; of its decoder
// only where it does not wrap. They are the same on every target.
TEST(G726, StreamsEqualThoseOfAnIndependentImplementation)
{
    const uint32_t codes[kSignals][4] = {{0x5B56DC52, 0x2DAAA757, 0x8C147BA1, 0xDCBB322A},
                                         {0x029ED042, 0x20C78AD4, 0xF37C622F, 0x9ED57A46},
                                         {0x428BE95E, 0xA78300E9, 0x0534F11E, 0xA58B9235},
                                         {0x005FD8E7, 0x5463C3EC, 0x5875F9B9, 0xF14344A8}};
    const uint32_t quiet[4] = {0x7B2A1A3E, 0x577CE78D, 0x7A70B70C, 0x09C3A20F};
    const uint32_t tilted[4] = {0x77699879, 0x1FEA7DAC, 0x036D3FEE, 0x5D8E0F0B};
    for (uint32_t bits = 2; bits <= 5; ++bits) {
        for (int s = 0; s < kSignals; ++s)
            EXPECT_EQ(crc32(encode(signal(Signal(s), 8000), bits)), codes[s][bits - 2])
                << bits << " bits, signal " << s;
        EXPECT_EQ(crc32(bytes_of(decode(encode(signal(kQuietNoise, 8000), bits), bits))), quiet[bits - 2]);
        EXPECT_EQ(crc32(bytes_of(decode(encode(signal(kTilted, 8000), bits), bits))), tilted[bits - 2]);
    }
}

// A decoder that wraps instead of limiting gives a clipped tone back with less than 10 dB.
TEST(G726, AClippedToneComesBackWithTheNoiseOfItsRate)
{
    std::vector<int16_t> tone(240000);
    for (size_t i = 0; i < tone.size(); ++i)
        tone[i] = int16_t(
            std::clamp(std::lrint(60000 * std::sin(2 * M_PI * 400 * double(i) / 8000)), -32768l, 32767l));
    const double least[] = {22, 29, 35, 39};
    for (uint32_t bits = 2; bits <= 5; ++bits) {
        const auto back = decode(encode(tone, bits), bits);
        double power = 0, noise = 0;
        for (size_t i = 0; i < tone.size(); ++i) {
            power += double(tone[i]) * tone[i];
            noise += std::pow(double(tone[i]) - back[i], 2);
        }
        EXPECT_GE(10 * std::log10(power / noise), least[bits - 2]) << bits;
    }
}

TEST(G726, FrameLengthAndPackingDoNotChangeTheCodes)
{
    const auto pcm = signal(kTilted, 960);
    for (uint32_t bits = 2; bits <= 5; ++bits) {
        const auto whole = encode(pcm, bits, G726_PACK_RFC3551, 960);
        for (size_t frame : {8u, 80u, 160u, 320u, 480u})
            EXPECT_EQ(encode(pcm, bits, G726_PACK_RFC3551, frame), whole);
        const auto upper = encode(pcm, bits, G726_PACK_AAL2);
        EXPECT_NE(upper, whole);
        EXPECT_EQ(decode(upper, bits, G726_PACK_AAL2), decode(whole, bits));
    }
    // First code in the most significant bits, by hand: the codes of 8 samples from the 24 bits of 3 octets.
    const auto lower = codes_of(encode(pcm, 3), 3);
    const auto upper = encode(pcm, 3, G726_PACK_AAL2);
    const uint32_t group = uint32_t(upper[0]) << 16 | uint32_t(upper[1]) << 8 | upper[2];
    for (int i = 0; i < 8; ++i) EXPECT_EQ(group >> (21 - 3 * i) & 7, lower[size_t(i)]);
}

TEST(G726, WhatIsNoWholeOctetOrNoSuchRateIsRefusedAndChangesNothing)
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

TEST(G726, SilenceStaysSilent)
{
    for (uint32_t bits = 3; bits <= 5; ++bits)
        for (int16_t sample : decode(encode(std::vector<int16_t>(8000), bits), bits)) ASSERT_EQ(sample, 0);
}
