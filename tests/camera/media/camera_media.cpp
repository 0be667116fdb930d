// The media platform in the camera, each group of tests on a camera of its own.
#include "tests/support/camera.hpp"
#include "tests/support/wav.hpp"

#include <gmock/gmock.h>

namespace {

const std::string kInside = "/run/bin/inside_media";

struct Media : testing::TestWithParam<const char*> {
    Camera camera;
};

} // namespace

TEST_P(Media, Inside)
{
    const std::string filter = std::string("--gtest_filter=") + GetParam() + ".*";
    const Outcome run = camera.run({kInside, filter}, {"--bind", INSIDE_MEDIA});
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(run.out.find("[  PASSED  ] 0 tests"), std::string::npos) << filter << " names no test";
}

INSTANTIATE_TEST_SUITE_P(All, Media,
                         testing::Values("Sound", "Time", "Flow", "Memory", "Drivers", "Refusals"));

namespace {

struct MediaLoop : testing::Test {
    Camera camera;
    const std::string mic = (camera.folder() / "mic.wav").string(),
                      heard = (camera.folder() / "heard.wav").string();

    Outcome run(const std::string& seconds)
    {
        return camera.run({"/run/bin/media_loop", seconds},
                          {"--bind", MEDIA_LOOP, "--mic", mic, "--speaker", heard});
    }
    std::string status(const std::string& option)
    {
        const Said said = vcam("status " + camera.state("").string() + " " + option);
        EXPECT_EQ(said.status, 0);
        return said.text;
    }
};

using testing::HasSubstr;

} // namespace

// The manual's example: the microphone's file goes in, the speaker's comes out, the status shows both.
TEST_F(MediaLoop, PlaysWhatItHears)
{
    const Samples sent = ramp(8000 * 2);
    write_file(mic, wav_bytes(sent, 8000));
    const Outcome outcome = run("2");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "100 frames, 16000 bytes of G.711\n");
    const Wav got = parse_wav(read_file(heard));
    EXPECT_EQ(got.rate, 8000u);
    ASSERT_EQ(got.samples.size(), sent.size());
    for (size_t i = 0; i < sent.size(); ++i)
        ASSERT_NEAR(got.samples[i], sent[i], 8 + sent[i] / 32) << "one step of the codec, at " << i;

    const std::string text = status("");
    EXPECT_THAT(text, HasSubstr("bind      ai 2,0 -> aenc 0\n"));
    EXPECT_THAT(text, HasSubstr("pool 0    ai 2, 60 blocks of 1280 at 0x8C000000, in use: driver "));
    EXPECT_THAT(text,
                HasSubstr("ai 2      enabled, 8000 Hz, 16 bits, mono, 160 points a frame, 30 frames, 2 "));
    EXPECT_THAT(
        text,
        HasSubstr(" 100 taken, 100 given back, 0 lost  [##################| ] -4.7 dB, highest -0.8 dB\n"));
    EXPECT_THAT(text, HasSubstr("ao 2,0    enabled, 100 frames, "));
    const std::string dot = status("--dot");
    EXPECT_THAT(dot, HasSubstr("\"mic.wav\" -> \"ai 2,0\" [label=\"100 taken, 0 lost\"];"));
    EXPECT_THAT(dot, HasSubstr("\"ai 2,0\" -> \"aenc 0\";"));
    EXPECT_THAT(dot, HasSubstr("\"ao 2,0\" -> \"speaker.wav\""));
    EXPECT_THAT(status("--json"), HasSubstr("\"binds\":[{\"from\":\"ai 2,0\",\"to\":\"aenc 0\"}]"));
}

TEST_F(MediaLoop, AMicrophoneThatIsNoSoundFileStopsTheRun)
{
    for (const std::string& bytes : {std::string(), std::string("RIFF"), std::string(100, 'x')}) {
        write_file(mic, bytes);
        const Outcome outcome = run("1");
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.err, HasSubstr(mic));
    }
}

// The chip keeps what each request names; loading its module resets it.
TEST_F(MediaLoop, TheCodecChipKeepsItsSettingsUntilItsModuleIsLoaded)
{
    write_file(camera.root("/dvs/acodec.ko"), "");
    const std::string inside = "/run/bin/inside_media --gtest_filter=Acodec.*";
    const auto shell = [&](const std::string& line) {
        return camera.run({"sh", "-c", line}, {"--bind", INSIDE_MEDIA});
    };
    EXPECT_EQ(shell("rmmod acodec; insmod /dvs/acodec.ko; " + inside).status, 0);
    EXPECT_THAT(status(""), HasSubstr("acodec    rate 0xC8, mic L 0x08, DAC R 0x7F\n"));
    EXPECT_EQ(shell(inside + "; rmmod acodec; insmod /dvs/acodec.ko").status, 0);
    EXPECT_EQ(status("").find("acodec    rate"), std::string::npos);
}

// A camera that starts knows nothing of what its drivers did before.
TEST_F(MediaLoop, ANewRunBeginsANewRecording)
{
    write_file(mic, wav_bytes(ramp(8000), 8000));
    EXPECT_EQ(run("1").status, 0);
    EXPECT_EQ(parse_wav(read_file(heard)).samples.size(), 8000u);
    write_file(camera.state("speaker-0-15.wav"), "of another channel");
    EXPECT_EQ(camera.run({"true"}).status, 0);
    for (const char* file : {"speaker.wav", "speaker-0-15.wav"}) EXPECT_FALSE(fs::exists(camera.state(file)));
    EXPECT_EQ(status("").find("media "), std::string::npos);
    EXPECT_EQ(run("1").status, 0);
    EXPECT_EQ(parse_wav(read_file(heard)).samples.size(), 8000u);
}

TEST_F(MediaLoop, AWiredRegisterReadsItsWordInAMappingToo)
{
    write_file(camera.state("pins"), "0x10070000 reads 0x2\n0x10070FFC reads 0x3\n");
    const Outcome outcome = camera.run({kInside, "--gtest_filter=Wired.*"}, {"--bind", INSIDE_MEDIA});
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr("0x10070000: 0x00000002\n0x10070008: 0x000000A5\n"));
    EXPECT_THAT(status(""), HasSubstr("register  0x10070008 = 0x00000005\n"));
}

// Bound in the drivers: sound flows whoever looks, until the camera ends.
TEST_F(MediaLoop, SoundFlowsThroughTheDriversAfterTheProgramsEnd)
{
    const Samples sent = ramp(8000 * 5);
    write_file(mic, wav_bytes(sent, 8000));
    const Outcome outcome =
        camera.run({kInside, "--gtest_filter=FlowLeft.*"},
                   {"--bind", INSIDE_MEDIA, "--mic", mic, "--speaker", heard, "--linger", "1.5"});
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    const Samples got = parse_wav(read_file(heard)).samples;
    EXPECT_GE(got.size(), 1.5 * 8000 - 160);
    ASSERT_LE(got.size(), sent.size());
    EXPECT_EQ(got, Samples(sent.begin(), sent.begin() + long(got.size())));

    const std::string frames = std::to_string(got.size() / 160) + " frames", counts = frames + ", 0 dropped";
    const std::string text = status("");
    EXPECT_THAT(text, HasSubstr("bind      ai 2,0 -> ao 2,0, " + counts + "\n"));
    EXPECT_THAT(text, HasSubstr(", 0 taken, 0 given back, 0 lost  ["));
    EXPECT_THAT(text, HasSubstr("ao 2,0    enabled, " + frames));
    EXPECT_THAT(text, HasSubstr(", 0 under-runs, 0 times full,"));
    const std::string dot = status("--dot");
    EXPECT_THAT(dot, HasSubstr("\"ai 2,0\" -> \"ao 2,0\" [label=\"" + counts + "\"];"));
    EXPECT_EQ(dot.find("program"), std::string::npos);
    EXPECT_THAT(status("--json"), HasSubstr("\"to\":\"ao 2,0\",\"frames\":" +
                                            std::to_string(got.size() / 160) + ",\"dropped\":0}"));
}
