// Audio output into the speaker's file.
#include "tests/camera/media/media.hpp"

namespace {

struct Playback : Platform {};

} // namespace

TEST_F(Playback, TheSpeakerGetsWhatWasSent)
{
    open_output(attributes());
    const Samples sent = ramp(160 * 100);
    for (size_t i = 0; i < sent.size(); i += 160) ASSERT_EQ(send(part(sent, i, 160)), 0);
    const Wav heard = speaker();
    EXPECT_EQ(heard.rate, 8000u);
    EXPECT_EQ(heard.channels, 1u);
    EXPECT_EQ(heard.samples, sent);
}
