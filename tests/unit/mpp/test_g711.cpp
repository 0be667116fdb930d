#include "mpi/audio/g711.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <numeric>
#include <vector>

namespace {

// The Recommendation's own terms: decision values of the 13-bit (A) and 14-bit (mu) magnitude, segment by
// segment. The octet of a magnitude is the number of the interval that it falls into.
struct Law {
    void (*encode)(const int16_t*, uint8_t*, size_t);
    void (*decode)(const uint8_t*, int16_t*, size_t);
    const int16_t* table;
    std::vector<int> upper;            // upper[n]: first magnitude above interval n
    std::function<int(int)> magnitude; // of a 16-bit sample, in the law's own units
    int positive, negative;            // what an interval number is combined with
    int unit;                          // 16-bit steps in one unit of the law
};

Law a_law()
{
    Law law{G711_EncodeA, G711_DecodeA, a2l_table, {}, [](int s) { return (s < 0 ? ~s : s) >> 4; },
            0xd5,         0x55,         8};
    int edge = 0;
    for (int segment = 0; segment < 8; ++segment)
        for (int i = 0; i < 16; ++i) law.upper.push_back(edge += segment < 2 ? 1 : 1 << (segment - 1));
    return law;
}

Law mu_law()
{
    Law law{G711_EncodeU, G711_DecodeU, u2l_table, {}, [](int s) { return (s < 0 ? ~s : s) >> 2; },
            0xff,         0x7f,         4};
    int edge = -1; // the first interval is half as wide as the others of its segment
    for (int segment = 0; segment < 8; ++segment)
        for (int i = 0; i < 16; ++i) law.upper.push_back(edge += 2 << segment);
    return law;
}

// Number of the interval, 0 to 127; what lies above the last one takes the last.
int interval(const Law& law, int sample)
{
    const int m = law.magnitude(sample);
    int n = 0;
    while (n < 127 && m >= law.upper[size_t(n)]) ++n;
    return n;
}

} // namespace

TEST(G711, EveryOneOf65536SamplesTakesTheIntervalOfTheDecisionValues)
{
    for (const Law& law : {a_law(), mu_law()}) {
        std::vector<int16_t> pcm(65536);
        std::iota(pcm.begin(), pcm.end(), int16_t(-32768));
        std::vector<uint8_t> octets(pcm.size());
        law.encode(pcm.data(), octets.data(), pcm.size());
        for (size_t i = 0; i < pcm.size(); ++i) {
            const int n = interval(law, pcm[i]);
            ASSERT_EQ(octets[i], pcm[i] < 0 ? law.negative ^ n : law.positive ^ n) << pcm[i];
        }
    }
}

TEST(G711, EveryOctetDecodesToTheMiddleOfItsInterval)
{
    for (const Law& law : {a_law(), mu_law()})
        for (int n = 0; n < 128; ++n) {
            const int a_unit = law.unit == 8 ? 2 : 1; // decision values of A-law stand in twice its unit
            const int below = n ? law.upper[size_t(n) - 1] : law.unit == 4 ? -1 : 0;
            const int middle = (below + law.upper[size_t(n)]) * a_unit * law.unit / 2;
            const uint8_t pair[2] = {uint8_t(law.positive ^ n), uint8_t(law.negative ^ n)};
            int16_t pcm[2];
            law.decode(pair, pcm, 2);
            EXPECT_EQ(pcm[0], middle) << n;
            EXPECT_EQ(pcm[1], -middle) << n;
            EXPECT_EQ(law.table[pair[0]], middle) << n;
        }
}

// The Recommendation states what its two conversion tables do in tandem: mu-A-mu raises the output values 0,
// 2, 4 .. 14 by one, A-mu-A changes the output values 26, 28, 30, 32, 45, 47, 63 and 80, and only in the last
// bit.
TEST(G711, DirectConversionsInTandemChangeOnlyTheListedValues)
{
    for (int octet = 0; octet < 256; ++octet) {
        const int mu = ~octet & 0x7f;
        const int mu_back = ~a2u_table[u2a_table[octet]] & 0x7f;
        EXPECT_EQ(mu_back, mu < 15 && mu % 2 == 0 ? mu + 1 : mu) << octet;

        const int a = (octet ^ 0x55) & 0x7f;
        const int a_back = (u2a_table[a2u_table[octet]] ^ 0x55) & 0x7f;
        const bool listed =
            a == 25 || a == 27 || a == 29 || a == 31 || a == 44 || a == 46 || a == 62 || a == 79;
        EXPECT_EQ(a_back != a, listed) << octet;
        EXPECT_EQ(a_back | 1, a | 1) << octet;
        EXPECT_EQ((octet ^ a2u_table[octet]) & 0x80, 0) << octet;
        EXPECT_EQ((octet ^ u2a_table[octet]) & 0x80, 0) << octet;
    }
}

// A direct conversion never strays further than the neighbour of what decoding and encoding would give.
TEST(G711, DirectConversionsStayNextToDecodingAndEncoding)
{
    for (int octet = 0; octet < 256; ++octet) {
        uint8_t again;
        G711_EncodeU(&a2l_table[octet], &again, 1);
        EXPECT_LE(std::abs((again & 0x7f) - (a2u_table[octet] & 0x7f)), 1) << octet;
        G711_EncodeA(&u2l_table[octet], &again, 1);
        EXPECT_LE(std::abs(((again ^ 0x55) & 0x7f) - ((u2a_table[octet] ^ 0x55) & 0x7f)), 1) << octet;
    }
}

TEST(G711, FrameLengthDoesNotMatterAndNothingIsWrittenBehindTheFrame)
{
    std::vector<int16_t> pcm(200);
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = int16_t(i * 7919);
    std::vector<uint8_t> whole(201, 0xee);
    G711_EncodeA(pcm.data(), whole.data(), 200);
    for (size_t length : {0u, 1u, 31u, 32u, 33u, 65u, 200u}) {
        std::vector<uint8_t> part(length + 1, 0xee);
        G711_EncodeA(pcm.data(), part.data(), length);
        EXPECT_TRUE(std::equal(part.begin(), part.end() - 1, whole.begin()));
        EXPECT_EQ(part.back(), 0xee);
    }
}
