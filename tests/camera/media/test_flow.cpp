// An input bound to an output in the drivers: what is heard there, when, and what is not.
#include "tests/camera/media/media.hpp"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t kFrame = 160;

struct Flow : Platform {
    static int32_t bind(int32_t from = 0, int32_t to = 0)
    {
        MPP_CHN_S ai = input(from), ao = output(to);
        return HI_MPI_SYS_Bind(&ai, &ao);
    }
    static int32_t unbind()
    {
        MPP_CHN_S ai = input(), ao = output();
        return HI_MPI_SYS_UnBind(&ai, &ao);
    }
    // The output waits for the input's first frame.
    static void start(const AIO_ATTR_S& in, const AIO_ATTR_S& out)
    {
        open_output(out);
        ASSERT_EQ(bind(), 0);
        open_input(in);
    }

    // Camera time in samples, as the host lets it pass.
    static double now()
    {
        uint64_t us = 0;
        EXPECT_EQ(HI_MPI_SYS_GetCurPts(&us), 0);
        return double(us) * 8000e-6;
    }
    // When something was done: between these two.
    struct Moment {
        double before, after;
    };
    template<class Action> static Moment at(Action action)
    {
        const double before = now();
        action();
        return {before, now()};
    }
    // As many whole frames as end from one moment to the other.
    static void expect_time(size_t samples, Moment from, Moment to, uint32_t points = kFrame)
    {
        EXPECT_GE(double(samples), to.before - from.after - points);
        EXPECT_LE(double(samples), to.after - from.before + points);
        EXPECT_EQ(samples % points, 0u);
    }
};
using FlowLeft = Flow;

} // namespace

TEST_F(Flow, EachFrameIsHeardOnceFromWhenItIsTakenUntilItIsUnbound)
{
    constexpr uint32_t kLong = 1600; // 200 ms, for slow hosts
    const Samples sound = ramp(8000 * 5);
    microphone(sound, 8000);
    const Moment begin = at([] { start(attributes(8000, kLong), attributes(8000, kLong)); });
    usleep(50000);
    EXPECT_EQ(unbind(), 0);
    const Wav early = speaker();
    EXPECT_EQ(bind(), 0);
    EXPECT_EQ(early.rate, 8000u);
    EXPECT_LE(double(early.samples.size()), now() - begin.before) << "no frame before it is whole";
    usleep(1000000);
    const Moment parted = at([] { ASSERT_EQ(unbind(), 0); });
    const Samples heard = speaker().samples;
    expect_time(heard.size(), begin, parted, kLong);
    EXPECT_EQ(heard, part(sound, 0, heard.size()));
    usleep(600000);
    const Moment again = at([] { EXPECT_EQ(bind(), 0); });
    usleep(600000);
    const Moment end = at([] { ASSERT_EQ(HI_MPI_AI_DisableChn(kDev, 0), 0); });
    const Samples all = speaker().samples;
    ASSERT_GT(all.size(), heard.size());
    const size_t more = all.size() - heard.size();
    expect_time(more, again, end, kLong);
    // What was taken in between is not made up for.
    const auto place = std::search(sound.begin(), sound.end(), all.end() - long(more), all.end());
    expect_time(size_t(place - sound.begin()) - heard.size(), parted, again, kLong);
}

// The programs' way to the same frames, the echo reference included, stays as it is.
TEST_F(Flow, AProgramGetsTheFramesTooAndWhatIsHeardAsTheirReference)
{
    const Samples sound = ramp(8000 * 2);
    microphone(sound, 8000);
    ASSERT_EQ(HI_MPI_AI_EnableAec(kDev, 0, kDev, 0), 0);
    start(attributes(), attributes());
    for (size_t i = 0; i < 50; ++i) {
        AUDIO_FRAME_S frame = {};
        AEC_FRAME_S aec = {};
        ASSERT_EQ(get(frame, &aec), 0);
        ASSERT_EQ(aec.bValid, 1u);
        EXPECT_EQ(samples_of(frame), part(sound, i * kFrame, kFrame)) << i;
        EXPECT_EQ(samples_of(aec.stFrame), i ? part(sound, (i - 1) * kFrame, kFrame) : Samples(kFrame)) << i;
        ASSERT_EQ(release(frame, &aec), 0);
    }
    ASSERT_EQ(unbind(), 0);
    EXPECT_EQ(part(speaker().samples, 0, 50 * kFrame), part(sound, 0, 50 * kFrame));
}

// The drivers convert nothing: sides go where they fit, and what the devices do not have in common is not heard.
TEST_F(Flow, AnOutputHearsWhatItsDeviceHasInCommonWithTheInput)
{
    Samples both, left, doubled;
    for (int16_t i = 0; i < 8000; ++i) {
        both.insert(both.end(), {i, int16_t(-i)});
        left.push_back(i);
        doubled.insert(doubled.end(), {i, i});
    }
    const AIO_ATTR_S mono = attributes(), stereo = attributes(8000, 160, AUDIO_SOUND_STEREO);
    AIO_ATTR_S narrow = mono;
    narrow.enBitwidth = AUDIO_BIT_WIDTH_8;
    const struct {
        AIO_ATTR_S in, out;
        Samples heard;
    } ways[] = {{stereo, stereo, both},           {stereo, mono, left},
                {mono, stereo, doubled},          {mono, attributes(16000, 160), {}},
                {mono, attributes(8000, 80), {}}, {mono, narrow, {}}};
    microphone(both, 8000, 2);
    for (const auto& way : ways) {
        SCOPED_TRACE(way.out.enSamplerate + way.out.u32PtNumPerFrm);
        start_platform();
        start(way.in, way.out);
        usleep(500000);
        ASSERT_EQ(unbind(), 0);
        const Wav heard = speaker();
        EXPECT_EQ(heard.rate, way.out.enSamplerate) << "a file, and a whole one";
        EXPECT_GE(heard.samples.size(), way.heard.empty() ? 0 : 24 * kFrame);
        EXPECT_EQ(heard.samples, part(way.heard, 0, way.heard.empty() ? 0 : heard.samples.size()));
        EXPECT_EQ(capture(3), part(left, 0, 3 * kFrame)) << "programs get it all the same";
    }
}

TEST_F(Flow, OneInputFeedsTwoOutputs)
{
    microphone(ramp(8000), 8000);
    open_output(attributes());
    ASSERT_EQ(HI_MPI_AO_EnableChn(kDev, 1), 0);
    for (int32_t to : {0, 1}) ASSERT_EQ(bind(0, to), 0);
    const Moment begin = at([] { open_input(attributes()); });
    usleep(300000);
    const Moment end = at([] { ASSERT_EQ(HI_MPI_AI_Disable(kDev), 0); });
    expect_time(speaker().samples.size(), begin, end);
    EXPECT_EQ(speaker("speaker-2-1.wav").samples, speaker().samples);
}

TEST_F(Flow, TheDriverRefusesWhatCannotBeBound)
{
    EXPECT_EQ(bind(), 0);
    EXPECT_EQ(bind(1, 0), kSys | 9) << "an output has one source";
    MPP_CHN_S ai = input(), ao = output(), found = {};
    EXPECT_EQ(HI_MPI_SYS_GetBindByDest(&ao, &found), 0);
    EXPECT_EQ(memcmp(&found, &ai, sizeof found), 0);
    EXPECT_EQ(HI_MPI_SYS_Bind(&ao, &ai), kSys | 3);
    EXPECT_EQ(HI_MPI_SYS_Bind(&ao, &ao), kSys | 3);
    EXPECT_EQ(bind(16, 1), kSys | 3);
    EXPECT_EQ(bind(0, 16), kSys | 3);
}

// No program of the camera is there any more: the drivers go on.
TEST_F(FlowLeft, BoundAsTheProgramEnds)
{
    start(attributes(), attributes());
    _exit(HasFailure());
}
