// Sound files: what is read from them.
#include "sim/drv/media/wav.hpp"
#include "tests/unit/sim/folder.hpp"

#include <gtest/gtest.h>
#include <vector>

namespace vcam::test {
namespace {

using Samples = std::vector<int16_t>;

struct WavFile : testing::Test {
    Folder folder;
    const std::string path = folder / "sound.wav";

    void make(const Samples& samples, uint32_t rate = 8000) const
    {
        ASSERT_TRUE(wav::create(path, rate, 1));
        ASSERT_TRUE(wav::put(path, 1, 0, samples));
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

} // namespace vcam::test
