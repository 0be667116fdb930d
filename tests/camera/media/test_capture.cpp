// Audio input from the microphone's file.
#include "tests/camera/media/media.hpp"

namespace {

struct Capture : Platform {};

} // namespace

TEST_F(Capture, GivesTheMicrophonesSamplesThenSilence)
{
    const Samples heard = ramp(160 * 5 + 40);
    microphone(heard, 8000);
    open_input(attributes());
    EXPECT_EQ(capture(8), part(heard, 0, 160 * 8));
}

TEST_F(Capture, StereoComesInTwoBlocksAndMonoChannelsTakeOneSideEach)
{
    Samples both, left = ramp(480, 1), right = ramp(480, 9000);
    for (size_t i = 0; i < left.size(); ++i) both.insert(both.end(), {left[i], right[i]});
    microphone(both, 16000, 2);
    open_input(attributes(16000, 160), 2);
    EXPECT_EQ(capture(3, 0), left);
    EXPECT_EQ(capture(3, 1), right);
    ASSERT_EQ(HI_MPI_AI_DisableChn(kDev, 0), 0);
    ASSERT_EQ(HI_MPI_AI_DisableChn(kDev, 1), 0);
    ASSERT_EQ(HI_MPI_AI_Disable(kDev), 0);
    open_input(attributes(16000, 160, AUDIO_SOUND_STEREO));
    AUDIO_FRAME_S frame = {};
    ASSERT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 1), 0);
    EXPECT_EQ(Samples(samples_of(frame, 0), samples_of(frame, 0) + 160), part(left, 0, 160));
    EXPECT_EQ(Samples(samples_of(frame, 1), samples_of(frame, 1) + 160), part(right, 0, 160));
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
}
