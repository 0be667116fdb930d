// Sound files: what is read from them, and where they are full.
#include "sim/models/wav.hpp"
#include "tests/support/temp_folder.hpp"

#include <gtest/gtest.h>
#include <vector>

namespace vcam::test {
namespace {

using Samples = std::vector<int16_t>;

struct WavFile : testing::Test {
    TempFolder folder;
    const std::string path = folder / "sound.wav";

    void make(const Samples& samples, uint32_t rate = 8000) const
    {
        ASSERT_TRUE(wav::create(path, rate, 1));
        ASSERT_TRUE(wav::put(path, 1, 0, samples));
    }
    [[nodiscard]] uint32_t word_at(size_t offset) const
    {
        std::ifstream in(path, std::ios::binary);
        uint32_t word = 0;
        in.seekg(long(offset)).read(reinterpret_cast<char*>(&word), sizeof word);
        return word;
    }
};

Samples heard(const wav::Reader& file, uint32_t rate, int64_t first, size_t count)
{
    Samples out(count, 99);
    wav::resample(file, 0, rate, first, out);
    return out;
}

} // namespace

// As by a copy over it.
TEST_F(WavFile, StaysWhatItWasWhileAnotherTakesItsPlace)
{
    const Samples sound(100'000, 1234);
    make(sound);
    const wav::Reader file(path);
    ASSERT_TRUE(file.current());
    std::filesystem::resize_file(path, 0);
    EXPECT_EQ(heard(file, 8000, 0, sound.size()), sound);
    EXPECT_FALSE(file.current());
    EXPECT_NE(wav::Reader(path).error(), "");
}

TEST_F(WavFile, IsSilentBehindItsEndAtEveryRate)
{
    make(Samples(8000, 10000));
    const wav::Reader file(path);
    for (const uint32_t rate : {8000u, 11025u, 48000u}) {
        EXPECT_NEAR(heard(file, rate, rate / 2, 1)[0], 10000, 100) << rate;
        for (const int64_t first : {int64_t(rate) * 2, int64_t(rate) * 1'000'000})
            EXPECT_EQ(heard(file, rate, first, 2048), Samples(2048)) << rate << " from " << first;
    }
    // The interpolation's reach still touches the last samples.
    EXPECT_NE(heard(file, 11025, 11025, 8), Samples(8));
}

// The header's sizes have 32 bits. What comes later is not written, least of all over the beginning.
TEST_F(WavFile, IsFullWhereItsHeaderEnds)
{
    constexpr uint32_t kMost = (UINT32_MAX - 44) / 2;
    make({1, 2, 3, 4});
    const Samples frame = {5, 6};
    EXPECT_TRUE(wav::put(path, 1, kMost - 2, frame)); // sparse
    EXPECT_EQ(word_at(4), kMost * 2 + 36);
    EXPECT_EQ(word_at(40), kMost * 2);
    Samples got(2);
    wav::get(path, 1, kMost - 2, got);
    EXPECT_EQ(got, frame);
    for (const uint32_t point : {kMost - 1, kMost, 1u << 31, UINT32_MAX - 1})
        EXPECT_FALSE(wav::put(path, 1, point, frame)) << point;
    EXPECT_FALSE(wav::put(path, 2, 1u << 30, frame));
    EXPECT_FALSE(wav::truncate(path, 1, 1u << 31));
    EXPECT_EQ(std::filesystem::file_size(path), 44 + uint64_t(kMost) * 2);
    EXPECT_EQ(word_at(44), 0x00020001u);
    wav::get(path, 1, int64_t(1) << 32, got);
    EXPECT_EQ(got, frame) << "there is nothing to read either";
    EXPECT_TRUE(wav::truncate(path, 1, kMost - 2));
    EXPECT_EQ(std::filesystem::file_size(path), 44 + uint64_t(kMost - 2) * 2);
}

} // namespace vcam::test
