// The stages that a frame passes in the library, and the echo reference.
#include "tests/camera/media/media.hpp"

#include <cmath>

namespace {

struct Stages : Platform {};

constexpr int32_t kAi = MPP_ERROR(HI_ID_AI, 0), kAo = MPP_ERROR(HI_ID_AO, 0);

Samples tone(double hertz, uint32_t rate, size_t count, double level = 10000)
{
    Samples out(count);
    for (size_t i = 0; i < count; ++i)
        out[i] = int16_t(std::lround(level * std::sin(2 * M_PI * hertz * double(i) / rate)));
    return out;
}

// Power of a tone in the samples, as amplitude; its phase does not matter.
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

} // namespace

// The microphone's file has whatever rate it has; the device's rate is the model's work.
TEST_F(Stages, TheMicrophoneIsHeardAtTheDevicesRate)
{
    const struct {
        uint32_t file, device;
        double hertz;
    } rows[] = {{44100, 8000, 1000}, {8000, 48000, 1000}, {48000, 16000, 3000}, {11025, 8000, 500}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.file) + " to " + std::to_string(row.device));
        start_platform();
        microphone(tone(row.hertz, row.file, row.file), row.file);
        open_input(attributes(row.device, row.device / 50));
        capture(2);
        const Samples got = capture(20);
        EXPECT_NEAR(amplitude(got, row.hertz, row.device), 10000, 100);
        EXPECT_NEAR(rms(got), 10000 / std::sqrt(2), 100) << "and nothing else";
    }
    // What the device's band cannot carry is not folded into it.
    start_platform();
    microphone(tone(6000, 48000, 48000), 48000);
    open_input(attributes(8000, 160));
    capture(2);
    EXPECT_LT(rms(capture(20)), 50);
}

TEST_F(Stages, InputIsConvertedFromTheDevicesRate)
{
    const struct {
        uint32_t kind, rate, points, result;
    } rows[] = {{1, 8000, 160, 16000}, {2, 16000, 320, 8000}, {3, 8000, 160, 32000},
                {4, 32000, 640, 8000}, {5, 8000, 160, 48000}, {6, 48000, 960, 8000}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.kind);
        start_platform();
        microphone(tone(500, row.rate, row.rate), row.rate);
        open_input(attributes(row.rate, row.points));
        const AIO_RESAMPLE_ATTR_S attr = {row.points, row.rate, row.kind};
        ASSERT_EQ(HI_MPI_AI_EnableReSmp(kDev, 0, &attr), 0);
        capture(3);
        const Samples got = capture(20);
        EXPECT_EQ(got.size(), 20 * size_t(row.points) * row.result / row.rate);
        EXPECT_NEAR(amplitude(got, 500, row.result), 10000, 200);
    }
}

TEST_F(Stages, InputConversionChecksItsRecordThenTheDevice)
{
    open_input(attributes(16000, 320));
    const struct {
        AIO_RESAMPLE_ATTR_S attr;
        int32_t code;
        const char* text;
    } rows[] = {
        {{2049, 7999, 0}, kAi | 3, "AiChn 1 resample u32InPointNum 2049 is larger than MAXFRAMESIZE 2048!\n"},
        {{2048, 7999, 0}, kAi | 3, "enInSampleRate:7999 is invalid\n"},
        {{2048, 48001, 1}, kAi | 3, "enInSampleRate:48001 is invalid\n"},
        {{2048, 48000, 0}, kAi | 3, "enInSampleRate:0 is invalid\n"},
        {{2048, 8000, 7}, kAi | 3, "enInSampleRate:7 is invalid\n"},
        {{2048, 48000, 6}, kAi | 3, "resample PtNumPerFrm2048 is not equal to AI's PtNumPerFrm320!\n"},
        {{320, 48000, 6}, kAi | 3, "resample SampleRate 48000 is not equal to AI's SampleRate 16000!\n"},
        {{320, 16000, 2}, 0, ""},
        {{320, 16000, 2}, 0, ""},
        {{2049, 16000, 2}, kAi | 9, "Resmp has been enabled but the attributes not the same as before\n"},
    };
    for (const auto& row : rows) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(HI_MPI_AI_EnableReSmp(kDev, 1, &row.attr), row.code) << row.text;
        const string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(said.substr(std::min(said.size(), said.find("[Info]:") + 7)), row.text);
    }
    EXPECT_EQ(HI_MPI_AI_DisableReSmp(kDev, 1), 0);
    EXPECT_EQ(HI_MPI_AI_EnableReSmp(kDev, 1, &rows[0].attr), kAi | 3) << "no longer enabled";
}

TEST_F(Stages, OutputIsConvertedToTheDevicesRateAndChecked)
{
    open_output(attributes(16000, 160));
    const struct {
        AIO_RESAMPLE_ATTR_S attr;
        const char* text;
    } rows[] = {
        {{2049, 7999, 0}, "AoChn 0 resample u32InPointNum 2049 is larger than MAXFRAMESIZE 2048!\n"},
        {{2048, 48001, 0}, "AoChn 0 resample rate is illegal!\n"},
        {{2048, 48000, 7}, "AO's enReSampleType 7 is illegal!\n"},
        {{79, 8000, 1}, "AO's PtNumPerFrm is not equal to the result of resample!\n"},
        {{80, 16000, 1}, "AO's samplerate is not equal to the result of resample!\n"},
    };
    for (const auto& row : rows) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(HI_MPI_AO_EnableReSmp(kDev, 0, &row.attr), kAo | 3) << row.text;
        const string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(said.substr(0, 25), "[Func]:MPI_AO_CheckReSmp ");
        EXPECT_EQ(said.substr(said.find("[Info]:") + 7), row.text);
    }
    const AIO_RESAMPLE_ATTR_S attr = {80, 8000, 1};
    ASSERT_EQ(HI_MPI_AO_EnableReSmp(kDev, 0, &attr), 0);
    const Samples sound = tone(500, 8000, 8000);
    for (size_t i = 0; i < sound.size(); i += 80) ASSERT_EQ(send(part(sound, i, 80)), 0);
    Samples heard = speaker().samples;
    EXPECT_EQ(heard.size(), 16000u);
    heard.erase(heard.begin(), heard.begin() + 800);
    EXPECT_NEAR(amplitude(heard, 500, 16000), 10000, 100);
    EXPECT_EQ(send(Samples(2049)), kAo | 3) << "more than the largest frame";
    EXPECT_EQ(HI_MPI_AO_ClearChnBuf(kDev, 0), 0);
    EXPECT_EQ(send(Samples(2048)), 0);
}

// Kind 6 by integer division: 1000 points are 166.
TEST_F(Stages, OutputPointsAreDividedDownwards)
{
    open_output(attributes(8000, 166));
    const AIO_RESAMPLE_ATTR_S attr = {1000, 48000, 6};
    EXPECT_EQ(HI_MPI_AO_EnableReSmp(kDev, 0, &attr), 0);
    EXPECT_EQ(send(ramp(1000)), 0);
    EXPECT_EQ(speaker().samples.size(), 166u);
}

TEST_F(Stages, NoiseIsReducedAndNarrowSamplesAreWidenedFirst)
{
    Samples noise(16000);
    uint32_t seed = 1;
    for (auto& s : noise) s = int16_t(int32_t(seed = seed * 1664525 + 1013904223) >> 19);
    microphone(noise, 8000);
    AIO_ATTR_S attr = attributes();
    attr.enBitwidth = AUDIO_BIT_WIDTH_8;
    open_input(attr);
    AUDIO_FRAME_S frame = {};
    ASSERT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 1), 0);
    EXPECT_EQ(frame.u32Len, 160u);
    EXPECT_EQ(int8_t(frame.pu8VirtAddr[0][3]), noise[3] >> 8);
    ASSERT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
    ASSERT_EQ(HI_MPI_AI_EnableAnr(kDev, 0), 0);
    ASSERT_EQ(HI_MPI_AI_EnableAnr(kDev, 0), 0);
    ASSERT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 1), 0);
    EXPECT_EQ(frame.u32Len, 320u);
    EXPECT_EQ(frame.u32BitWidth, uint32_t(AUDIO_BIT_WIDTH_16));
    ASSERT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
    capture(50);
    EXPECT_LT(rms(capture(20)), rms(noise) / 4);
    EXPECT_EQ(HI_MPI_AI_DisableAnr(kDev, 0), 0);
}

TEST_F(Stages, NoiseReductionChecksTheDevice)
{
    const struct {
        AIO_ATTR_S attr;
        const char* text;
    } rows[] = {
        {attributes(48000, 320), "AiDev: 2, anr should be 80 or 160 point per frm!\n"},
        {attributes(48000, 160), "AiDev: 2, anr should be 8k or 16k sample rate!\n"},
        {attributes(16000, 80, AUDIO_SOUND_STEREO), "anr don't support stereo!\n"},
    };
    for (const auto& row : rows) {
        ASSERT_EQ(HI_MPI_AI_SetPubAttr(kDev, &row.attr), 0);
        testing::internal::CaptureStderr();
        EXPECT_EQ(HI_MPI_AI_EnableAnr(kDev, 0), kAi | 3);
        const string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(said.substr(said.find("[Info]:") + 7), row.text);
    }
}

// The reference of a frame is what the output played while the frame was taken.
TEST_F(Stages, TheEchoReferenceIsWhatWasPlayed)
{
    open_output(attributes());
    open_input(attributes());
    ASSERT_EQ(HI_MPI_AI_EnableAec(kDev, 0, kDev, 0), 0);
    const Samples sound = ramp(160 * 20);
    for (size_t i = 0; i < sound.size(); i += 160) ASSERT_EQ(send(part(sound, i, 160)), 0);
    Samples reference;
    for (int i = 0; i < 30; ++i) {
        AUDIO_FRAME_S frame = {};
        AEC_FRAME_S aec = {};
        ASSERT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, &aec, 1), 0);
        ASSERT_EQ(aec.bValid, 1u);
        ASSERT_EQ(aec.stFrame.u32Len, 320u);
        reference.insert(reference.end(), samples_of(aec.stFrame), samples_of(aec.stFrame) + 160);
        ASSERT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, &aec), 0);
    }
    const auto first = std::find_if(reference.begin(), reference.end(), [](int16_t s) { return s != 0; });
    ASSERT_LE(first - reference.begin(), 160 * 9) << "playing began a moment after the capture";
    EXPECT_EQ(Samples(first, first + long(sound.size())), sound);
    // Converted frames have none, and the caller's record is left alone.
    const AIO_RESAMPLE_ATTR_S up = {160, 8000, 1};
    ASSERT_EQ(HI_MPI_AI_EnableReSmp(kDev, 0, &up), 0);
    AUDIO_FRAME_S frame = {};
    AEC_FRAME_S stale = {};
    stale.bValid = 77;
    testing::internal::CaptureStderr();
    ASSERT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, &stale, 1), 0);
    const string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said.substr(0, 26), "[Func]:HI_MPI_AI_GetFrame ") << "the operation, not a step of it";
    EXPECT_EQ(said.substr(said.find("[Info]:") + 7), "can't do resample and aec at the same time!\n");
    EXPECT_EQ(stale.bValid, 77u);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
}
