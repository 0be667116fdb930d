// CRC-32 against published values and a bit-by-bit computation.
#include "tests/support/package_file.hpp"

#include "upgrade/crc32.hpp"

#include <random>

using zep::crc32_update;

TEST(Crc32, GivesThePublishedValues)
{
    EXPECT_EQ(crc32_update(0, "", 0), 0u);
    EXPECT_EQ(crc32_update(0, "a", 1), 0xE8B7BE43u);
    EXPECT_EQ(crc32_update(0, "123456789", 9), 0xCBF43926u);
    EXPECT_EQ(crc32_update(0, Bytes(32, '\0').data(), 32), 0x190A55ADu);
    EXPECT_EQ(crc32_update(0, Bytes(32, '\xFF').data(), 32), 0xFF6CAB0Bu);
}

// Lengths around the eight-byte round and the four-lane block, at every alignment.
TEST(Crc32, AgreesWithTheBitwiseComputationAtEveryLengthAndAlignment)
{
    std::mt19937 random(1);
    Bytes bytes(1600, 0);
    for (char& c : bytes) c = char(random());
    for (size_t length : {1, 7, 8, 9, 127, 128, 129, 511, 512, 513, 520, 1023, 1024, 1025, 1590})
        for (size_t start = 0; start < 9; ++start)
            EXPECT_EQ(crc32_update(0, bytes.data() + start, length), slow_crc32(bytes.substr(start, length)))
                << length << " at " << start;
}

TEST(Crc32, IsTheSameInWhateverPiecesTheBytesCome)
{
    Bytes bytes;
    for (int i = 0; i < 4000; ++i) bytes += char(i * i >> 3);
    uint32_t whole = crc32_update(0, bytes.data(), bytes.size());
    std::mt19937 random(2);
    for (int round = 0; round < 50; ++round) {
        uint32_t crc = 0;
        for (size_t at = 0; at < bytes.size();) {
            size_t n = std::min<size_t>(random() % 700, bytes.size() - at);
            crc = crc32_update(crc, bytes.data() + at, n);
            at += n;
        }
        ASSERT_EQ(crc, whole);
    }
}
