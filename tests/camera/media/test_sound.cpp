// Sound from the microphone's file through the library's stages, and through them to the speaker's.
#include "tests/camera/media/media.hpp"

#include <cmath>

namespace {

using Sound = Platform;

Samples tone(double hertz, uint32_t rate)
{
    Samples out(rate);
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = int16_t(std::lround(10000 * std::sin(2 * M_PI * hertz * double(i) / rate)));
    return out;
}

// Amplitude of a tone in the samples; its phase does not matter.
double amplitude(const Samples& samples, double hertz, uint32_t rate)
{
    double re = 0, im = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        re += samples[i] * std::cos(2 * M_PI * hertz * double(i) / rate);
        im += samples[i] * std::sin(2 * M_PI * hertz * double(i) / rate);
    }
    return 2 * std::hypot(re, im) / double(samples.size());
}

double rms(const Samples& samples)
{
    double sum = 0;
    for (int s : samples) sum += double(s) * s;
    return std::sqrt(sum / double(samples.size()));
}

// And silence after the file's end.
TEST_F(Sound, StereoComesInTwoBlocksAndMonoChannelsTakeOneSideEach)
{
    Samples both, left = ramp(480, 1), right = ramp(480, 9000);
    for (size_t i = 0; i < left.size(); ++i) both.insert(both.end(), {left[i], right[i]});
    microphone(both, 16000, 2);
    open_input(attributes(16000, 160), 2);
    EXPECT_EQ(capture(5, 0), part(left, 0, 800));
    EXPECT_EQ(capture(5, 1), part(right, 0, 800));
    start_platform();
    open_input(attributes(16000, 160, AUDIO_SOUND_STEREO));
    AUDIO_FRAME_S frame = {};
    ASSERT_EQ(get(frame), 0);
    EXPECT_EQ(samples_of(frame, 0), part(left, 0, 160));
    EXPECT_EQ(samples_of(frame, 1), part(right, 0, 160));
    EXPECT_EQ(release(frame), 0);
}

// The file has whatever rate it has; the device's rate is the model's work, and the stage's rate the library's. What the
// device's band cannot carry is not folded into it.
TEST_F(Sound, InputHasTheDevicesRateThenTheStages)
{
    const struct {
        uint32_t file, device, stage, result;
        double hertz, level;
    } rows[] = {{44100, 8000, 0, 8000, 1000, 10000},   {8000, 48000, 0, 48000, 1000, 10000},
                {48000, 16000, 0, 16000, 3000, 10000}, {11025, 8000, 0, 8000, 500, 10000},
                {48000, 8000, 0, 8000, 6000, 0},       {8000, 8000, 1, 16000, 500, 10000},
                {16000, 16000, 2, 8000, 500, 10000},   {8000, 8000, 3, 32000, 500, 10000},
                {32000, 32000, 4, 8000, 500, 10000},   {8000, 8000, 5, 48000, 500, 10000},
                {48000, 48000, 6, 8000, 500, 10000}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.file << " to " << row.device << ", kind " << row.stage);
        start_platform();
        microphone(tone(row.hertz, row.file), row.file);
        open_input(attributes(row.device, row.device / 50));
        const AIO_RESAMPLE_ATTR_S attr = {row.device / 50, row.device, row.stage};
        ASSERT_EQ(row.stage ? HI_MPI_AI_EnableReSmp(kDev, 0, &attr) : 0, 0);
        capture(3);
        const Samples got = capture(20);
        EXPECT_EQ(got.size(), 20 * size_t(row.result) / 50);
        EXPECT_NEAR(amplitude(got, row.hertz, row.result), row.level, 100);
        EXPECT_NEAR(rms(got), row.level / std::sqrt(2), 100) << "and nothing else";
    }
}

TEST_F(Sound, OutputIsConvertedToTheDevicesRate)
{
    open_output(attributes(16000, 160));
    const AIO_RESAMPLE_ATTR_S attr = {80, 8000, 1};
    ASSERT_EQ(HI_MPI_AO_EnableReSmp(kDev, 0, &attr), 0);
    const Samples sound = tone(500, 8000);
    for (size_t at = 0; at < sound.size(); at += 80) ASSERT_EQ(send(part(sound, at, 80)), 0);
    Samples heard = speaker().samples;
    EXPECT_EQ(heard.size(), 16000u);
    heard.erase(heard.begin(), heard.begin() + 800);
    EXPECT_NEAR(amplitude(heard, 500, 16000), 10000, 100);
    EXPECT_EQ(send(Samples(2049)), kAo | 3) << "more than the largest frame";
    EXPECT_EQ(HI_MPI_AO_ClearChnBuf(kDev, 0), 0);
    EXPECT_EQ(send(Samples(2048)), 0);
    // Kind 6 by integer division: 1000 points are 166.
    start_platform();
    open_output(attributes(8000, 166));
    const AIO_RESAMPLE_ATTR_S down = {1000, 48000, 6};
    EXPECT_EQ(HI_MPI_AO_EnableReSmp(kDev, 0, &down), 0);
    EXPECT_EQ(send(ramp(1000)), 0);
    EXPECT_EQ(speaker().samples.size(), 166u);
}

TEST_F(Sound, NoiseIsReducedAndNarrowSamplesAreWidenedFirst)
{
    Samples noise(16000);
    uint32_t seed = 1;
    for (auto& s : noise) s = int16_t(int32_t(seed = seed * 1664525 + 1013904223) >> 19);
    microphone(noise, 8000);
    AIO_ATTR_S attr = attributes();
    attr.enBitwidth = AUDIO_BIT_WIDTH_8;
    open_input(attr);
    AUDIO_FRAME_S frame = {};
    ASSERT_EQ(get(frame), 0);
    EXPECT_EQ(frame.u32Len, 160u);
    EXPECT_EQ(int8_t(frame.pu8VirtAddr[0][3]), noise[3] >> 8);
    ASSERT_EQ(release(frame), 0);
    for (int twice = 0; twice < 2; ++twice) ASSERT_EQ(HI_MPI_AI_EnableAnr(kDev, 0), 0);
    ASSERT_EQ(get(frame), 0);
    EXPECT_EQ(frame.u32Len, 320u);
    EXPECT_EQ(frame.u32BitWidth, uint32_t(AUDIO_BIT_WIDTH_16));
    ASSERT_EQ(release(frame), 0);
    capture(50);
    EXPECT_LT(rms(capture(20)), rms(noise) / 4);
    EXPECT_EQ(HI_MPI_AI_DisableAnr(kDev, 0), 0);
}

// Converted frames have no echo reference, and the caller's record is left alone.
TEST_F(Sound, ConversionAndEchoReferenceExcludeEachOther)
{
    open_output(attributes());
    open_input(attributes());
    const AIO_RESAMPLE_ATTR_S up = {160, 8000, 1};
    ASSERT_EQ(HI_MPI_AI_EnableAec(kDev, 0, kDev, 0), 0);
    ASSERT_EQ(HI_MPI_AI_EnableReSmp(kDev, 0, &up), 0);
    AUDIO_FRAME_S frame = {};
    AEC_FRAME_S aec = {};
    aec.bValid = 77;
    const Complaints complaints;
    ASSERT_EQ(get(frame, &aec), 0);
    EXPECT_EQ(complaints.info("HI_MPI_AI_GetFrame "), "can't do resample and aec at the same time!\n");
    EXPECT_EQ(aec.bValid, 77u);
    EXPECT_EQ(release(frame), 0);
}

} // namespace
