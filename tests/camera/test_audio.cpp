// test_audio on the virtual camera, with zep-audio as its station: both directions, each codec, and stations
// that misbehave. Microphone and loudspeaker are WAV files.
#include "tests/support/camera.hpp"

#include "tools/audio/analysis.hpp"
#include "tools/audio/codec.hpp"
#include "tools/audio/wav.hpp"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <span>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

void put_wav(const fs::path& path, const zaudio::Sound& sound)
{
    cli::OutputFile file(path.string(), cli::wav_rule(false));
    zaudio::write_wav(file, sound);
}

struct Codec {
    const char* name;
    int32_t type;
    double snr_least; // of a tone at -12 dB
    double level_off; // dB that its level may be off
};
constexpr Codec kCodecs[] = {{"g711a", 19, 33, 0.3},
                             {"g711u", 20, 33, 0.3},
                             {"g726", 21, 8, 1.5},
                             {"lpcm", 23, 60, 0.1},
                             {"adpcm", 49, 15, 1}};

// Voiced and unvoiced parts, loud and soft: a stand-in for speech that every run makes the same.
std::vector<int16_t> speech(int rate, double seconds)
{
    std::vector<int16_t> samples(size_t(rate * seconds));
    uint32_t random = 1;
    double leak = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const double t = double(i) / rate, envelope = 0.5 - 0.5 * std::cos(2 * M_PI * 4 * t);
        random = random * 1664525 + 1013904223;
        leak = 0.9 * leak + (int32_t(random) >> 20);
        double voice = 0;
        for (int k = 1; k < 12; ++k) voice += std::sin(2 * M_PI * 130 * k * t) / k;
        samples[i] = int16_t(envelope * (5000 * voice + leak));
    }
    return samples;
}

// A message in a shell's printf: decode session of a payload type, or a request without a body.
std::string start_decode(int payload)
{
    char text[200];
    snprintf(text, sizeof text,
             R"(TAUD\x01\x00\x02\x00\x1c\x00\x00\x00\x01\x00\x00\x00\x00\x00\x00\x00\x%02x\x00\x00\x00)"
             R"(\x40\x1f\x00\x00\x01\x00\x00\x00\x0f\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00)",
             unsigned(payload));
    return text;
}
constexpr char kStop[] = R"(TAUD\x01\x00\x03\x00\x00\x00\x00\x00\x02\x00\x00\x00)";

class Audio : public testing::Test {
protected:
    Audio()
    {
        microphone = {8000, zaudio::make_tone(8000, 1000, -12, 60)};
        put_wav(camera.state("mic.wav"), microphone);
    }

    // Runs `script` in the camera with a server on port 5000; "station" is zep-audio, $SERVER the server's
    // process.
    Outcome with_server(const std::string& script, const Lines& options = {})
    {
        write_file(
            camera.folder() / "script",
            "station() { c=$1; shift; /run/bin/zep-audio $c --limit 5 $STATION "
            "\"$@\"; }\n"
            "rm -f /tmp/server.log\n"
            // A sanitizer that keeps what was freed would look like a server that grows.
            "export ASAN_OPTIONS=$ASAN_OPTIONS:quarantine_size_mb=0:thread_local_quarantine_size_kb=0\n"
            "set -m\n" // without it a script's background jobs ignore SIGINT
            "test_audio 5000 > /tmp/server.log 2>/tmp/server.err &\n"
            "SERVER=$!\nat='127.0.0.1 5000'\n"
            "until grep -q port /tmp/server.log; do sleep 0.1; done\n" +
                script + "\nkill -TERM $SERVER\nwait $SERVER\necho server $?\n");
        Lines all = {"--bind", ZEP_AUDIO, "--bind", (camera.folder() / "script").string()};
        all.insert(all.end(), options.begin(), options.end());
        Outcome outcome = camera.run({"bash", "/run/bin/script"}, all);
        EXPECT_THAT(outcome.out, HasSubstr("server 0")) << outcome.err;
        console = read_file(camera.root("/tmp/server.log"));
        complaints = read_file(camera.root("/tmp/server.err"));
        return outcome;
    }

    Camera camera;
    zaudio::Sound microphone;
    std::string console, complaints;
};

// The number that a command says behind a name; NAN without it.
double said(const Outcome& outcome, const char* name)
{
    const size_t at = outcome.out.find(name);
    return at == std::string::npos ? NAN : atof(outcome.out.c_str() + at + strlen(name));
}

TEST_F(Audio, TheMicrophoneArrivesThroughEachCodecOneSessionAfterTheOther)
{
    std::string script;
    for (const Codec& codec : kCodecs)
        script +=
            std::string("station record -t 1.5 -c ") + codec.name + " $at /tmp/" + codec.name + ".wav\n";
    const Outcome outcome = with_server(script);
    for (const Codec& codec : kCodecs) {
        SCOPED_TRACE(codec.name);
        const auto recorded = zaudio::read_wav(camera.root(std::string("/tmp/") + codec.name + ".wav"));
        ASSERT_GE(recorded.samples.size(), 12000u) << outcome.out << outcome.err;
        const auto tone = zaudio::find_tone(std::span(recorded.samples).subspan(1600), 8000, 1000);
        ASSERT_TRUE(tone);
        EXPECT_NEAR(tone->frequency, 1000, 0.5);
        EXPECT_NEAR(tone->level_db, -12, codec.level_off);
        EXPECT_GT(tone->snr_db, codec.snr_least);
    }
    EXPECT_THAT(outcome.out, Not(HasSubstr("lost on the way 1")));
}

TEST_F(Audio, TheLoudspeakerPlaysWhatTheCodecLeavesOfTheStationsSpeech)
{
    constexpr size_t kPoints = 320;
    zaudio::Sound voice{8000, speech(8000, 2)};
    voice.samples.resize(voice.samples.size() / kPoints * kPoints);
    for (const Codec& codec : kCodecs) {
        SCOPED_TRACE(codec.name);
        Camera fresh;
        put_wav(fresh.folder() / "voice.wav", voice);
        write_file(fresh.folder() / "script", "test_audio 5000 & sleep 1\n/run/bin/zep-audio play -c " +
                                                  std::string(codec.name) +
                                                  " 127.0.0.1 5000 /run/bin/voice.wav\nkill $!\nwait\n");
        const Outcome outcome = fresh.run(
            {"sh", "/run/bin/script"}, {"--bind", ZEP_AUDIO, "--bind", (fresh.folder() / "script").string(),
                                        "--bind", (fresh.folder() / "voice.wav").string()});
        EXPECT_THAT(outcome.out, HasSubstr("took 50, dropped 0, damaged 0")) << outcome.err;
        zaudio::Encoder encoder(codec.type);
        zaudio::Decoder decoder(codec.type);
        std::vector<int16_t> expected;
        for (size_t at = 0; at < voice.samples.size(); at += kPoints) {
            const auto from = voice.samples.begin() + long(at);
            const auto frame = decoder.decode(encoder.encode({from, from + kPoints}));
            expected.insert(expected.end(), frame.begin(), frame.end());
        }
        const auto played = zaudio::read_wav(fresh.state("speaker.wav"));
        EXPECT_EQ(played.rate, 8000);
        EXPECT_NE(std::search(played.samples.begin(), played.samples.end(), expected.begin(), expected.end()),
                  played.samples.end())
            << played.samples.size() << " samples, none missing and none more in between";
    }
}

TEST_F(Audio, ALineFromTheLoudspeakerToTheMicrophoneIsFoundWithItsLength)
{
    fs::remove(camera.state("mic.wav"));
    for (const auto& [length, codec] : {std::pair(40, "g711a"), std::pair(700, "lpcm")}) {
        const Outcome outcome = with_server(std::string("station verdict -t 1 --snr 5 -c ") + codec + " $at",
                                            {"--loop", std::to_string(length)});
        EXPECT_GE(said(outcome, "delay"), length) << outcome.out << outcome.err;
        EXPECT_LT(said(outcome, "delay"), length + 900) << outcome.out << "a busy host starts late";
        EXPECT_NEAR(said(outcome, "level"), -12, 1.5) << outcome.out;
    }
    const Outcome without = with_server("station verdict -t 0.5 $at");
    EXPECT_THAT(without.out, HasSubstr("nothing of what was sent comes back")) << "the line was that run's";
}

TEST_F(Audio, TheConsoleAndTheChipSeeEachStep)
{
    const Outcome outcome =
        with_server("station record -t 0.5 --mic-volume 40 --adc-volume 200 --dac-volume 5 $at "
                    "/tmp/x.wav");
    std::string without_listing = console;
    const size_t from = console.find("========================== > reset\n") + 35,
                 to = console.find("MIC volume");
    EXPECT_THAT(console.substr(from, to - from), HasSubstr("acodec\n"));
    without_listing.erase(from, to - from);
    // The tools for modules speak on standard error, which goes elsewhere here.
    EXPECT_EQ(without_listing, "test_audio: port 5000\n"
                               "START ENCODE AUDIO\n"
                               "============================> gs_bMicIn : 1\n"
                               "========================== > reset\n"
                               "MIC volume 40\n"
                               "DA volume 5\n"
                               "AD volume 200\n"
                               "step 2: start Ai\n"
                               "step 3: start Aenc\n"
                               "step 4: Aenc bind Ai Chn\n"
                               "Ai(2,0) bind to AencChn:0 ok!\n"
                               "step 5: start Adec & Ao. ( if you want )\n"
                               "bind adec:0 to ao(2,0) ok \n"
                               "STOP AUDIO\n");
    EXPECT_THAT(outcome.of("rmmod"), ElementsAre("/dvs/acodec.ko"));
    EXPECT_THAT(outcome.of("insmod"), ElementsAre("/dvs/acodec.ko"));
    EXPECT_THAT(outcome.of("acodec"), ElementsAre("rate 0xc0", "input 0x04", "micl 0x08", "micr 0x08",
                                                  "dacl 0x05", "dacr 0x05", "adcl 0x48", "adcr 0x48"));

    const std::pair<int, const char*> groups[] = {{11025, "rate 0xc0"}, {12000, "rate 0xc0"},
                                                  {22050, "rate 0xc8"}, {24000, "rate 0xc8"},
                                                  {44100, "rate 0xd0"}, {48000, "rate 0xd0"}};
    for (const auto& [rate, setting] : groups) {
        const Outcome other =
            with_server("station record -t 0.4 --mic-in 0 -r " + std::to_string(rate) + " $at /tmp/x.wav");
        EXPECT_THAT(other.of("acodec"),
                    ElementsAre(setting, "dacl 0x00", "dacr 0x00", "adcl 0x00", "adcr 0x00"))
            << "the microphone is left alone";
    }
}

TEST_F(Audio, EachRefusalHasItsMessageAndTheNextSessionRunsAllTheSame)
{
    struct Case {
        const char* fault;
        const char* message;
        const char* result;
    };
    const Case cases[] = {
        {"vb setconf 0 1 EIO", "StartAudio: HI_MPI_VB_SetConf failed!\n", "-1 (0xffffffff)"},
        {"vb init 0 1 EIO", "StartAudio: HI_MPI_VB_Init failed!\n", "-1 (0xffffffff)"},
        {"sys setconf 0 1 EIO", "StartAudio: HI_MPI_SYS_SetConf failed\n", "-1 (0xffffffff)"},
        {"sys init 0 1 EIO", "StartAudio: HI_MPI_SYS_Init failed!\n", "-1 (0xffffffff)"},
        {"acodec open 0 1 ENOENT", "StartAudio: can't open acodec,/dev/acodec\n", "-1 (0xffffffff)"},
        {"acodec rate 0 1 EIO", "StartAudio: set acodec sample rate failed\n", "-1 (0xffffffff)"},
        {"acodec input 0 1 EIO", "StartAudio: set acodec micin failed\n", "-1 (0xffffffff)"},
        {"acodec micl 0 1 EIO", "StartAudio: set acodec micin volume failed\n", "-1 (0xffffffff)"},
        {"acodec micr 0 1 EIO", "StartAudio: set acodec micin volume failed\n", "-1 (0xffffffff)"},
        {"acodec dacl 0 1 EIO", "StartAudio: ACODEC_SET_DACL_VOL failed\n", "-1 (0xffffffff)"},
        {"acodec dacr 0 1 EIO", "StartAudio: ACODEC_SET_DACR_VOL failed\n", "-1 (0xffffffff)"},
        {"acodec adcl 0 1 EIO", "StartAudio: ACODEC_SET_ADCL_VOL failed\n", "-1 (0xffffffff)"},
        {"acodec adcr 0 1 EIO", "StartAudio: ACODEC_SET_ADCR_VOL failed\n", "-1 (0xffffffff)"},
        {"ai setattr 0 1 EIO", "StartAudio: HI_MPI_AI_SetPubAttr(2) failed with 0xffffffff\n",
         "-1 (0xffffffff)"},
        {"ai enable 0 1 EIO", "StartAudio: HI_MPI_AI_Enable(2) failed with 0xffffffff\n", "-1 (0xffffffff)"},
        {"ai enablechn 1 1 EIO", "StartAudio: HI_MPI_AI_EnableChn(2,1) failed with 0xffffffff\n",
         "-1 (0xffffffff)"},
        {"sys bind 0 1 EIO", "s32Ret=0xffffffff,fuc:StartAudio,line:1047\n", "-1 (0xffffffff)"},
        {"ao setattr 0 1 EIO", "StartAudio: HI_MPI_AO_SetPubAttr(2) failed with 0xffffffff!\n",
         "-1 (0xffffffff)"},
        {"ao enable 0 1 EIO", "StartAudio: HI_MPI_AO_Enable(2) failed with 0xffffffff!\n", "-1 (0xffffffff)"},
        {"ao enablechn 0 1 EIO", "StartAudio: HI_MPI_AO_EnableChn(0) failed with 0xffffffff!\n",
         "-1 (0xffffffff)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.fault);
        fs::remove(camera.state("faults.state"));
        camera.faults(std::string(c.fault) + "\n");
        const Outcome outcome = with_server("station record -t 0.4 $at /tmp/x.wav\n"
                                            "station record -t 0.4 $at /tmp/x.wav");
        EXPECT_THAT(console, HasSubstr(c.message));
        EXPECT_THAT(outcome.err, HasSubstr(std::string("refuses the session: ") + c.result));
        EXPECT_THAT(outcome.out, HasSubstr("/tmp/x.wav: 0.4"))
            << "the session after it" << outcome.err << complaints;
    }
    camera.faults("");
    const Outcome outcome = with_server("station record -t 0.4 -r 96000 $at /tmp/x.wav");
    EXPECT_THAT(console, HasSubstr("StartAudio: not support stAioAttr.enSamplerate:96000\n"));
    EXPECT_THAT(outcome.of("insmod"), ElementsAre("/dvs/acodec.ko")) << "the reload comes first";
    EXPECT_THAT(console, Not(HasSubstr("step 2")));
}

TEST_F(Audio, AHundredSessionsLeaveNothingBehind)
{
    const Outcome outcome = with_server(
        "state() { sleep 0.5; echo $(ls /proc/$SERVER/fd | wc -l) $(ls /proc/$SERVER/task | wc -l) "
        "$(sed -n 's/VmRSS:[^0-9]*\\([0-9]*\\).*/\\1/p' /proc/$SERVER/status); }\n"
        "for i in 1 2 3 4 5 6 7 8 9 10; do station record -c lpcm -t 0.4 $at /tmp/x.wav > /dev/null; done\n"
        "echo early $(state)\n"
        "for i in $(seq 90); do station record -c adpcm -t 0.4 $at /tmp/x.wav > /dev/null || echo failed; "
        "done\n"
        "echo late $(state)\n");
    EXPECT_THAT(outcome.out, Not(HasSubstr("failed"))) << outcome.err;
    int descriptors[2], threads[2], kilobytes[2];
    ASSERT_EQ(sscanf(outcome.out.c_str(), "early %d %d %d late %d %d %d", &descriptors[0], &threads[0],
                     &kilobytes[0], &descriptors[1], &threads[1], &kilobytes[1]),
              6)
        << outcome.out;
    EXPECT_EQ(descriptors[0], descriptors[1]);
    EXPECT_EQ(threads[1], 1) << "the decoding thread has ended";
    EXPECT_LE(kilobytes[1], kilobytes[0] + 256);
}

TEST_F(Audio, SoundThatTheOutputDoesNotPlayIsNoSuccess)
{
    put_wav(camera.folder() / "voice.wav", {8000, speech(8000, 2)});
    struct Case {
        const char* fault;
        const char* said;
        int status;
    };
    for (const Case& c : {Case{"ao send 0 -1 EIO", "took 50, dropped 0, damaged 0, unheard 50;", 1},
                          {"ao send 7 1 0xA016800F", "took 50, dropped 0, damaged 0, unheard 1;", 1},
                          {"", "took 50, dropped 0, damaged 0, unheard 0;", 0}}) {
        SCOPED_TRACE(c.fault);
        fs::remove(camera.state("faults.state"));
        camera.faults(std::string(c.fault) + "\n");
        const Outcome outcome =
            with_server("station play $at /run/bin/voice.wav; echo status $?\nstation status $at\n",
                        {"--bind", (camera.folder() / "voice.wav").string()});
        EXPECT_THAT(outcome.out, HasSubstr(c.said)) << outcome.err;
        EXPECT_EQ(said(outcome, "\nstatus "), c.status);
        EXPECT_EQ(outcome.err.find("has not played everything") != std::string::npos, c.status != 0);
    }
}

TEST_F(Audio, AMessageOfAdpcmIsOneFrame)
{
    const auto message = [](int points) {
        char text[200];
        snprintf(text, sizeof text,
                 R"(printf 'TAUD\x01\x00\x04\x00\x%02x\x%02x\x00\x00\x00\x00\x00\x00' >&3; )"
                 "head -c %d /dev/zero >&3\n",
                 (4 + points / 2) % 256, (4 + points / 2) / 256, 4 + points / 2);
        return std::string(text);
    };
    // One of 320 points, one of 160, and two of 320 in one message.
    const Outcome outcome = with_server(
        "exec 3<>/dev/tcp/127.0.0.1/5000\nprintf '" + start_decode(49) + "' >&3\n" + message(320) +
        message(160) + message(648) + "sleep 1\nprintf '" + kStop + "' >&3\nhead -c 72 <&3 > /tmp/replies\n");
    const std::string counts = read_file(camera.root("/tmp/replies")).substr(20 + 16 + 3 * 4, 16);
    EXPECT_EQ(counts, std::string("\3\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0", 16)) << "received, dropped, damaged";
    EXPECT_EQ(zaudio::read_wav(camera.state("speaker.wav")).samples.size(), 480u);
}

TEST_F(Audio, StationsThatVanishOrCutInCostOnlyTheirOwnSession)
{
    const Outcome outcome = with_server("timeout -s KILL 1 /run/bin/zep-audio record -t 50 $at /tmp/x.wav\n"
                                        "sleep 0.5; station status $at || echo still busy\n"
                                        "/run/bin/zep-audio record -t 50 $at /tmp/y.wav & FIRST=$!\nsleep 1\n"
                                        "station status $at && echo not alone\n"
                                        "kill -KILL $FIRST; wait $FIRST\n"
                                        "station record -t 0.4 $at /tmp/z.wav\n");
    EXPECT_THAT(outcome.out, Not(HasSubstr("still busy")));
    EXPECT_THAT(outcome.out, Not(HasSubstr("not alone")));
    EXPECT_THAT(outcome.err, HasSubstr("another station is connected"));
    EXPECT_THAT(outcome.out, HasSubstr("/tmp/z.wav: 0.4"));
}

// A station that reads nothing keeps others out for the limit and what its receive buffer holds of the codec.
TEST_F(Audio, AStationThatTakesNothingIsClosedSoonWithEachCodec)
{
    for (const char* codec : {"-c g726", "-c g711a", "-c lpcm -r 48000"}) {
        SCOPED_TRACE(codec);
        const Outcome outcome =
            with_server(std::string("/run/bin/zep-audio record -t 500 ") + codec +
                        " $at /tmp/y.wav & DEAF=$!\nsleep 1; kill -STOP $DEAF; asked=$(date +%s)\n"
                        "until station status $at 2>/dev/null; do sleep 0.5; done\n"
                        "echo took $(( $(date +%s) - asked ))\nkill -KILL $DEAF; wait $DEAF\n");
        EXPECT_GE(said(outcome, "\ntook"), 2) << outcome.out;
        EXPECT_LE(said(outcome, "\ntook"), 20) << outcome.out;
    }
}

TEST_F(Audio, FramesThatTheInputLosesWhileAStationLagsAreCounted)
{
    const Outcome outcome =
        with_server("/run/bin/zep-audio record -c lpcm -r 48000 -t 6 $at /tmp/y.wav & LATE=$!\n"
                    "sleep 1; kill -STOP $LATE; sleep 2; kill -CONT $LATE; "
                    "wait $LATE; echo status $?\n");
    EXPECT_EQ(said(outcome, "\nstatus "), 0) << outcome.out << outcome.err;
    EXPECT_GT(said(outcome, "lost in the camera's input "), 10) << outcome.out;
}

TEST_F(Audio, ASilentSessionEndsWhenAnotherStationAsks)
{
    const Outcome outcome =
        with_server("exec 3<>/dev/tcp/127.0.0.1/5000\nprintf '" + start_decode(23) +
                    "' >&3\nhead -c 20 <&3 > /tmp/started\n"
                    "sleep 58; station status $at || echo early\n"
                    "sleep 5; station status $at && echo free\ncat <&3 > /tmp/told\n"
                    // A session whose sound flows is not silent, however long.
                    "/run/bin/zep-audio record -t 80 $at /tmp/y.wav & LONG=$!\n"
                    "sleep 70; station status $at || echo busy; wait $LONG; echo status $?\n");
    EXPECT_THAT(outcome.out, HasSubstr("early\nno session")) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("free\nbusy\n")) << outcome.err;
    EXPECT_EQ(said(outcome, "\nstatus "), 0) << outcome.out << outcome.err;
    EXPECT_EQ(read_file(camera.root("/tmp/told")).substr(6, 2), std::string("\x84\0", 2));
    EXPECT_THAT(complaints, HasSubstr("test_audio: a session was silent for 60 s"));
}

TEST_F(Audio, APipeInPlaceOfTheTestFileIsNotPlayed)
{
    const Outcome outcome = with_server(
        "rm -f /tmp/AUDIO.G711; mkfifo /tmp/AUDIO.G711\nexec 3<>/dev/tcp/127.0.0.1/5000\nprintf '" +
        start_decode(19) + "' >&3\nhead -c 20 <&3 > /tmp/started; sleep 2\nasked=$(date +%s)\nprintf '" +
        kStop + "' >&3\ntimeout 10 head -c 52 <&3 > /tmp/stopped\nrm /tmp/AUDIO.G711\n");
    EXPECT_EQ(read_file(camera.root("/tmp/stopped")).size(), 52u);
}

TEST_F(Audio, ASilentStationHearsTheTestFileAndASlowOneIsCutOff)
{
    // A-law octets of a slow saw; what they mean is the codec's affair, compared through it below.
    std::string octets;
    for (int i = 0; i < 320 * 30; ++i) octets += char(0x55 ^ (i / 40));
    write_file(camera.root("/tmp/AUDIO.G711"), octets);
    const std::string start = start_decode(19);
    const Outcome outcome = with_server(
        "trap '' PIPE\nexec 3<>/dev/tcp/127.0.0.1/5000\nprintf '" + start + "' >&3\nsleep 0.5\nprintf '" +
        start + // while the first session runs: it is ended, a second one begins
        "' >&3\nsleep 4\n"
        "printf 'TAUD\\x01\\x00\\x03\\x00\\x00\\x00\\x00\\x00\\x02\\x00\\x00\\x00' >&3\nsleep 1\n"
        // A header that trickles in for longer than a message may take.
        "for byte in T A U D; do printf $byte >&3; sleep 4; done 2>/dev/null\n"
        "cat <&3 > /tmp/replies\nstation status $at\n");
    EXPECT_EQ(read_file(camera.root("/tmp/replies")).size(), 20u + 20u + 52u);
    EXPECT_EQ(outcome.of("insmod").size(), 2u);
    EXPECT_THAT(outcome.out, HasSubstr("no session")) << outcome.err;
    EXPECT_THAT(console, HasSubstr("START DECODE AUDIO\n"));
    zaudio::Decoder decoder(19);
    const auto expected = decoder.decode({octets.begin(), octets.end()});
    const auto played = zaudio::read_wav(camera.state("speaker.wav"));
    EXPECT_NE(std::search(played.samples.begin(), played.samples.end(), expected.begin(), expected.end()),
              played.samples.end());
}

TEST_F(Audio, AStopFreesAStartThatFailedHalfWayAndDoesNotWaitForALongMessage)
{
    const Outcome outcome =
        with_server("exec 3<>/dev/tcp/127.0.0.1/5000\nprintf '" + start_decode(22) +
                    "' >&3\nhead -c 20 <&3 > /tmp/refusal\nprintf '" + kStop +
                    "' >&3\nhead -c 52 <&3 > /tmp/stopped\nprintf '" + start_decode(21) +
                    "' >&3\nhead -c 20 <&3 > /tmp/started\n"
                    // The longest message: 51 seconds of sound.
                    "printf 'TAUD\\x01\\x00\\x04\\x00\\x00\\x90\\x01\\x00\\x00\\x00\\x00"
                    "\\x00' >&3\nhead -c 102400 /dev/zero >&3\nsleep 1\n"
                    "asked=$(date +%s)\nprintf '" +
                    kStop +
                    "' >&3\n"
                    "head -c 52 <&3 > /tmp/stopped2\necho took $(( $(date +%s) - asked ))\n");
    EXPECT_THAT(console,
                HasSubstr("step 3: start Aenc\nStartAudio: invalid aenc payload type:22\nSTOP AUDIO\n"));
    EXPECT_EQ(read_file(camera.root("/tmp/refusal")).substr(16), "\xff\xff\xff\xff");
    const auto disabled = std::count(outcome.journal.begin(), outcome.journal.end(), "ai disable 2 0");
    EXPECT_EQ(disabled, 2) << "one of the failed start, one of the session";
    const std::string stopped = read_file(camera.root("/tmp/stopped2"));
    ASSERT_EQ(stopped.size(), 52u);
    EXPECT_LT(said(outcome, "took"), 20) << "seconds";
    EXPECT_EQ(stopped.substr(16 + 4 * 4), std::string(20, '\0')) << "what is cut off is no damage";
}

TEST_F(Audio, AnInterruptEndsAServerThatIsBusyStarting)
{
    std::string many;
    for (int i = 0; i < 40; ++i) many += "printf '" + start_decode(19) + "'\n";
    with_server("exec 3<>/dev/tcp/127.0.0.1/5000\n{ " + many +
                "} > /tmp/many; cat /tmp/many >&3\nuntil grep -q START /tmp/server.log; do sleep 0.01; done\n"
                "kill -INT $SERVER\nsleep 5\n");
    size_t starts = 0;
    for (size_t at = 0; (at = console.find("START DECODE", at)) != std::string::npos; ++at) ++starts;
    EXPECT_LT(starts, 10u) << "the rest is not begun";
}

TEST_F(Audio, WrongCommandLinesAndSignals)
{
    for (const Lines& command : {Lines{"test_audio"}, Lines{"test_audio", "0"}, Lines{"test_audio", "65536"},
                                 Lines{"test_audio", "50x"}, Lines{"test_audio", "5000", "5001"},
                                 Lines{"test_audio", "5000", "127.0.0.1", "x"}}) {
        const Outcome outcome = camera.run(command);
        EXPECT_EQ(outcome.status, 255);
        EXPECT_THAT(outcome.err, HasSubstr("usage: test_audio port [address]\n"));
        EXPECT_EQ(outcome.out, "");
    }
    // A second server finds the port taken; a signal in mid-session ends the first, with everything shut
    // down.
    const Outcome outcome =
        with_server("test_audio 5000; echo second $?\n"
                    // One address only: another of the camera's own is refused, a foreign one cannot be had.
                    "test_audio 5001 127.0.0.2 & OTHER=$!\nsleep 1\n"
                    "/run/bin/zep-audio status 127.0.0.2 5001 && echo heard\n"
                    "/run/bin/zep-audio status 127.0.0.1 5001 || echo not heard\n"
                    "kill $OTHER; wait $OTHER; test_audio 5001 192.0.2.1; echo foreign $?\n"
                    "/run/bin/zep-audio record -t 50 $at /tmp/x.wav & STATION=$!; sleep 1\n"
                    "kill -INT $SERVER; wait $SERVER; echo first $?; wait $STATION\n"
                    // Hung up: by that signal, after the path is down; not where the caller ignores it.
                    "test_audio 5000 & SERVER=$!\nsleep 1\n"
                    "/run/bin/zep-audio record -t 50 $at /tmp/x.wav & STATION=$!; sleep 1\n"
                    "kill -HUP $SERVER; wait $SERVER; echo hung up $?; wait $STATION\n"
                    "trap '' HUP\ntest_audio 5000 & SERVER=$!\nsleep 1; kill -HUP $SERVER; sleep 1\n");
    EXPECT_THAT(outcome.out, HasSubstr("second 255"));
    EXPECT_THAT(outcome.out, HasSubstr("\nheard\nnot heard\n"));
    EXPECT_THAT(outcome.out, HasSubstr("foreign 255"));
    EXPECT_THAT(outcome.err, HasSubstr("test_audio: 192.0.2.1 port 5001: Cannot assign requested address"));
    EXPECT_THAT(outcome.out, HasSubstr("first 0"));
    EXPECT_THAT(outcome.out, HasSubstr("hung up 129"));
    EXPECT_EQ(std::count(outcome.journal.begin(), outcome.journal.end(), "ai disable 2 0"), 2);
    EXPECT_THAT(outcome.err, HasSubstr("the camera has closed the connection"));
}

} // namespace
