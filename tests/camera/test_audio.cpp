// test_audio on the virtual camera, with zep-audio as its station: both directions, each codec, and stations that
// misbehave. Microphone and loudspeaker are WAV files. Nothing here has an upper limit in time: a busy host is late.
#include "tests/support/camera.hpp"
#include "tests/support/wav.hpp"

#include "bench/dsp/voices.hpp"
#include "tools/audio/analysis.hpp"
#include "tools/audio/codec.hpp"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

bool contains(const Samples& all, const Samples& part)
{
    return std::search(all.begin(), all.end(), part.begin(), part.end()) != all.end();
}

constexpr char kLibraries[] = ZEP_HOST_LIBRARIES ":" ZEP_HOST_LIBRARIES; // that the station needs

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

// Two seconds like speech, in 50 frames.
constexpr int kPoints = 320;
Samples speech() { return voices::babble(50 * kPoints, 8000, 1500, 1); }

// Words of the scripts. station: zep-audio. sessions N: waits until N sessions have begun; sound N: until the
// loudspeaker has got N samples. The others speak with the server on descriptor 3; take N FILE keeps what it answers.
constexpr char kWords[] = R"sh(
station() { /run/bin/zep-audio $1 --limit 60 "${@:2}"; }
sessions() { until [ $(grep -c ^START /tmp/server.log) -ge $1 ]; do sleep 0.1; done; }
sound() {
    until [ $(stat -c %s $VCAM_STATE/speaker.wav 2>/dev/null || echo 0) -ge $((44 + 2 * $1)) ]; do sleep 0.1; done
    sleep 0.2 # camera time in which what the output holds is played: a stop cuts off the rest
}
dial() { exec 3<>/dev/tcp/127.0.0.1/5000; }
message() { # COMMAND LENGTH [BODY]
    length=$(printf '\\x%02x\\x%02x\\x%02x\\x00' $(($2 & 255)) $(($2 >> 8 & 255)) $(($2 >> 16)))
    printf "TAUD\x01\x00\x0$1\x00$length\x01\x00\x00\x00$3" >&3
}
start() { # PAYLOAD [RATE], decoded at 8000 Hz or at a rate of four bytes
    local payload=$(printf '\\x%02x' $1) zeros=$(printf '\\x00%.0s' {1..11})
    message 2 28 "\x00\x00\x00\x00$payload\x00\x00\x00${2:-\x40\x1f\x00\x00}\x01\x00\x00\x00\x0f$zeros"
}
frame() { message 4 $1; head -c $1 /dev/zero >&3; }
stop() { message 3 0; }
take() { head -c $1 <&3 > /tmp/$2; }
server() { # COMMAND...
    rm -f /tmp/server.log # an earlier server's word is none of this one's
    "$@" > /tmp/server.log 2>/tmp/server.err & SERVER=$!
    until grep -qs port /tmp/server.log; do sleep 0.1; done
}
# A sanitizer that keeps what was freed would look like a server that grows.
export ASAN_OPTIONS=$ASAN_OPTIONS:quarantine_size_mb=0:thread_local_quarantine_size_kb=0
set -m # without it a script's background jobs ignore SIGINT
at='127.0.0.1 5000'
)sh";

class Audio : public testing::Test {
protected:
    Audio()
    {
        write_file(camera.state("mic.wav"), wav_bytes(zaudio::make_tone(8000, 1000, -12, 60), 8000));
        write_file(camera.folder() / "voice.wav", wav_bytes(speech(), 8000));
    }

    // Runs `script` in the camera with a server on port 5000, process $SERVER, that is ended after it.
    Outcome with_server(const std::string& script, const Lines& options = {})
    {
        write_file(camera.folder() / "script", kWords + ("server test_audio 5000\n" + script) +
                                                   "\nkill -TERM $SERVER\nwait $SERVER\necho server $?\n");
        Lines all = {"--bind", ZEP_AUDIO, "--bind", kLibraries};
        for (const char* file : {"script", "voice.wav"})
            all.insert(all.end(), {"--bind", (camera.folder() / file).string()});
        all.insert(all.end(), options.begin(), options.end());
        Outcome outcome = camera.run({"bash", "/run/bin/script"}, all);
        EXPECT_THAT(outcome.out, HasSubstr("server 0")) << outcome.err;
        console = tmp("server.log");
        return outcome;
    }
    std::string tmp(const std::string& file) const { return read_file(camera.root("/tmp/" + file)); }
    Samples played() const { return parse_wav(read_file(camera.state("speaker.wav"))).samples; }

    Camera camera;
    std::string console;
};

// The number that a command says behind a name; NAN without it.
double said(const Outcome& outcome, const char* name)
{
    const size_t at = outcome.out.find(name);
    return at == std::string::npos ? NAN : atof(outcome.out.c_str() + at + strlen(name));
}

TEST_F(Audio, TheMicrophoneArrivesThroughEachCodecOneSessionAfterTheOther)
{
    std::string names;
    for (const Codec& codec : kCodecs) names += std::string(codec.name) + " ";
    const Outcome outcome = with_server("for codec in " + names +
                                        "; do\n"
                                        "station record -t 1.5 -c $codec $at /tmp/$codec.wav; done\n");
    for (const Codec& codec : kCodecs) {
        SCOPED_TRACE(codec.name);
        const auto recorded = parse_wav(tmp(std::string(codec.name) + ".wav"));
        ASSERT_GE(recorded.samples.size(), 12000u) << outcome.out << outcome.err;
        const auto tone = zaudio::find_tone(std::span(recorded.samples).subspan(1600), 8000, 1000);
        ASSERT_TRUE(tone);
        EXPECT_NEAR(tone->frequency, 1000, 0.5);
        EXPECT_NEAR(tone->level_db, -12, codec.level_off);
        EXPECT_GT(tone->snr_db, codec.snr_least);
    }
}

TEST_F(Audio, TheLoudspeakerPlaysWhatTheCodecLeavesOfTheStationsSpeech)
{
    const Samples voice = speech();
    for (const Codec& codec : kCodecs) {
        SCOPED_TRACE(codec.name);
        const Outcome outcome =
            with_server(std::string("station play -c ") + codec.name + " $at /run/bin/voice.wav");
        EXPECT_THAT(outcome.out, HasSubstr("took 50, dropped 0, damaged 0")) << outcome.err;
        zaudio::Encoder encoder(codec.type);
        zaudio::Decoder decoder(codec.type);
        Samples expected;
        for (auto at = voice.begin(); at < voice.end(); at += kPoints) {
            const auto frame = decoder.decode(encoder.encode({at, at + kPoints}));
            expected.insert(expected.end(), frame.begin(), frame.end());
        }
        EXPECT_TRUE(contains(played(), expected)) << "none missing and none more in between";
    }
}

TEST_F(Audio, ALineFromTheLoudspeakerToTheMicrophoneIsFoundWithItsLength)
{
    fs::remove(camera.state("mic.wav"));
    for (const auto& [length, codec] : {std::pair(40, "g711a"), std::pair(700, "lpcm")}) {
        const Outcome outcome = with_server(std::string("station verdict -t 1 --snr 5 -c ") + codec + " $at",
                                            {"--loop", std::to_string(length)});
        EXPECT_GE(said(outcome, "delay"), length) << outcome.out << outcome.err;
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
    const size_t from = console.find("> reset\n") + 8, to = console.find("MIC volume");
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
    const Outcome others = with_server("for rate in 11025 12000 22050 24000 44100 48000; do\n"
                                       "station record -t 0.4 --mic-in 0 -r $rate $at /tmp/x.wav; done");
    Lines expected; // the microphone is left alone
    for (const char* rate : {"rate 0xc0", "rate 0xc0", "rate 0xc8", "rate 0xc8", "rate 0xd0", "rate 0xd0"})
        expected.insert(expected.end(), {rate, "dacl 0x00", "dacr 0x00", "adcl 0x00", "adcr 0x00"});
    EXPECT_EQ(others.of("acodec"), expected);
}

TEST_F(Audio, EachRefusalHasItsMessageAndTheNextSessionRunsAllTheSame)
{
    const std::pair<const char*, const char*> cases[] = {
        {"vb setconf 0", "StartAudio: HI_MPI_VB_SetConf failed!"},
        {"vb init 0", "StartAudio: HI_MPI_VB_Init failed!"},
        {"sys setconf 0", "StartAudio: HI_MPI_SYS_SetConf failed"},
        {"sys init 0", "StartAudio: HI_MPI_SYS_Init failed!"},
        {"acodec open 0", "StartAudio: can't open acodec,/dev/acodec"},
        {"acodec rate 0", "StartAudio: set acodec sample rate failed"},
        {"acodec input 0", "StartAudio: set acodec micin failed"},
        {"acodec micl 0", "StartAudio: set acodec micin volume failed"},
        {"acodec micr 0", "StartAudio: set acodec micin volume failed"},
        {"acodec dacl 0", "StartAudio: ACODEC_SET_DACL_VOL failed"},
        {"acodec dacr 0", "StartAudio: ACODEC_SET_DACR_VOL failed"},
        {"acodec adcl 0", "StartAudio: ACODEC_SET_ADCL_VOL failed"},
        {"acodec adcr 0", "StartAudio: ACODEC_SET_ADCR_VOL failed"},
        {"ai setattr 0", "StartAudio: HI_MPI_AI_SetPubAttr(2) failed with 0xffffffff"},
        {"ai enable 0", "StartAudio: HI_MPI_AI_Enable(2) failed with 0xffffffff"},
        {"ai enablechn 1", "StartAudio: HI_MPI_AI_EnableChn(2,1) failed with 0xffffffff"},
        {"sys bind 0", "s32Ret=0xffffffff,fuc:StartAudio,line:1047"},
        {"ao setattr 0", "StartAudio: HI_MPI_AO_SetPubAttr(2) failed with 0xffffffff!"},
        {"ao enable 0", "StartAudio: HI_MPI_AO_Enable(2) failed with 0xffffffff!"},
        {"ao enablechn 0", "StartAudio: HI_MPI_AO_EnableChn(0) failed with 0xffffffff!"},
    };
    for (const auto& [fault, message] : cases) {
        SCOPED_TRACE(fault);
        fs::remove(camera.state("faults.state"));
        camera.faults(std::string(fault) + " 1 EIO\n");
        const Outcome outcome = with_server("for i in 1 2; do station record -t 0.4 $at /tmp/x.wav; done");
        EXPECT_THAT(console, HasSubstr(std::string("\n") + message + "\n"));
        EXPECT_THAT(outcome.err, HasSubstr("refuses the session: -1, the camera's console says why\n"));
        EXPECT_THAT(outcome.out, HasSubstr("/tmp/x.wav: 0.4")) << "the session after it" << outcome.err;
    }
    const Outcome outcome = with_server("dial; start 19 '\\x00\\x77\\x01\\x00'; take 20 refusal; stop\n");
    EXPECT_THAT(console, HasSubstr("StartAudio: not support stAioAttr.enSamplerate:96000\n"));
    EXPECT_THAT(outcome.of("insmod"), ElementsAre("/dvs/acodec.ko")) << "the reload comes first";
    EXPECT_THAT(console, Not(HasSubstr("step 2")));
}

TEST_F(Audio, AHundredSessionsLeaveNothingBehind)
{
    const Outcome outcome = with_server(
        "use() { for i in $(seq $2); do station record -c $1 -t 0.4 $at /tmp/x.wav >&2 || echo failed; done\n"
        "sleep 0.5; fds=$(ls /proc/$SERVER/fd | wc -l) threads=$(ls /proc/$SERVER/task | wc -l)\n"
        "kilobytes=$(sed -n 's/VmRSS:[^0-9]*\\([0-9]*\\).*/\\1/p' /proc/$SERVER/status); }\n"
        "use lpcm 10; early=$fds before=$kilobytes; use adpcm 90; echo more: $((fds - early)), $threads\n"
        "[ $kilobytes -le $((before + 512)) ] || echo grown from $before to $kilobytes\n");
    // Descriptors; and the decoding thread has ended.
    EXPECT_EQ(outcome.out, "more: 0, 1\nserver 0\n") << outcome.err;
}

TEST_F(Audio, SoundThatTheOutputDoesNotPlayIsNoSuccess)
{
    for (const auto& [fault, unheard] :
         {std::pair("ao send 0 -1 EIO", 50), {"ao send 7 1 0xA016800F", 1}, {"", 0}}) {
        SCOPED_TRACE(fault);
        fs::remove(camera.state("faults.state"));
        camera.faults(std::string(fault) + "\n");
        const Outcome outcome =
            with_server("station play $at /run/bin/voice.wav; echo status $?\nstation status $at\n");
        EXPECT_THAT(outcome.out,
                    HasSubstr("took 50, dropped 0, damaged 0, unheard " + std::to_string(unheard) + ";"))
            << outcome.err;
        EXPECT_EQ(said(outcome, "\nstatus "), unheard ? 1 : 0);
        EXPECT_EQ(outcome.err.find("has not played everything") != std::string::npos, unheard != 0);
    }
}

TEST_F(Audio, AMessageOfAdpcmIsOneFrame)
{
    // One of 320 points, one of 160, and two of 320 in one message.
    with_server("dial; start 49; frame 164; frame 84; frame 328; sound 480; stop; take 72 replies\n");
    // Received, dropped, damaged.
    EXPECT_EQ(tmp("replies").substr(20 + 16 + 3 * 4, 12), std::string("\3\0\0\0\0\0\0\0\1\0\0\0", 12));
    EXPECT_EQ(played().size(), 480u);
}

TEST_F(Audio, StationsThatVanishOrCutInCostOnlyTheirOwnSession)
{
    const Outcome outcome =
        with_server("for vanishing in 1 2; do\n"
                    "until station status $at 2>/dev/null; do sleep 0.1; done\n"
                    "/run/bin/zep-audio record -t 5000 $at /tmp/x.wav & FIRST=$!\nsessions $vanishing\n"
                    "station status $at && echo not alone\n"
                    "kill -KILL $FIRST; wait $FIRST; done 2>/tmp/complaints\n"
                    "until station record -t 0.4 $at /tmp/z.wav 2>/dev/null; do sleep 0.1; done\n");
    EXPECT_THAT(outcome.out, Not(HasSubstr("not alone")));
    EXPECT_THAT(tmp("complaints"), HasSubstr("another station is connected"));
    EXPECT_THAT(outcome.out, HasSubstr("/tmp/z.wav: 0.4"));
}

// A station that reads nothing keeps others out for the limit and what its receive buffer holds of the codec.
TEST_F(Audio, AStationThatTakesNothingIsClosedWithEachCodec)
{
    const Outcome outcome = with_server(
        "for codec in '-c g726' '-c g711a' '-c lpcm -r 48000'; do session=$((session + 1))\n"
        "/run/bin/zep-audio record -t 5000 $codec $at /tmp/y.wav & DEAF=$!\n"
        "sessions $session; sleep 1; kill -STOP $DEAF; asked=$(date +%s)\n"
        "for try in $(seq 100); do sleep 0.5; station status $at 2>/dev/null && break; done\n"
        "[ $(( $(date +%s) - asked )) -ge 2 ] && echo not early; kill -KILL $DEAF; wait $DEAF; done\n");
    EXPECT_THAT(outcome.out, testing::ContainsRegex("(no session;[^\n]*\nnot early\n){3}")) << outcome.out;
}

// The server is stopped, so that nobody takes what the input's driver has no more room for.
TEST_F(Audio, FramesThatTheInputLosesAreCounted)
{
    const Outcome outcome =
        with_server("station record -c lpcm -r 48000 -t 6 $at /tmp/y.wav & STATION=$!\n"
                    "sessions 1; sleep 1; kill -STOP $SERVER; sleep 2; kill -CONT $SERVER; "
                    "wait $STATION; echo status $?\n");
    EXPECT_EQ(said(outcome, "\nstatus "), 0) << outcome.out << outcome.err;
    EXPECT_GT(said(outcome, "lost in the camera's input "), 10) << outcome.out;
}

TEST_F(Audio, ASilentSessionEndsWhenAnotherStationAsks)
{
    const Outcome outcome =
        with_server("dial; start 23; take 20 started\n"
                    "sleep 20; station status $at || echo early\n"
                    "sleep 45; station status $at && echo free\ncat <&3 > /tmp/told\n"
                    // A session whose sound flows is not silent, however long.
                    "station record -t 100 $at /tmp/y.wav & LONG=$!\nsessions 2\n"
                    "sleep 65; station status $at || echo busy; wait $LONG; echo status $?\n");
    EXPECT_THAT(outcome.out, HasSubstr("early\nno session")) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("free\nbusy\n")) << outcome.err;
    EXPECT_EQ(said(outcome, "\nstatus "), 0) << outcome.out << outcome.err;
    EXPECT_EQ(tmp("told").substr(6, 2), std::string("\x84\0", 2));
    EXPECT_THAT(tmp("server.err"), HasSubstr("test_audio: a session was silent for 60 s"));
}

TEST_F(Audio, ASilentStationHearsTheTestFileAndASlowOneIsCutOff)
{
    // A-law octets of a slow saw; what they mean is the codec's affair, compared through it below.
    std::vector<uint8_t> octets(320 * 30);
    for (size_t i = 0; i < octets.size(); ++i) octets[i] = uint8_t(0x55 ^ (i / 40));
    write_file(camera.root("/tmp/AUDIO.G711"), std::string(octets.begin(), octets.end()));
    const Outcome outcome =
        with_server("trap '' PIPE; dial; start 19; sleep 0.5\n"
                    // While the first session runs: it is ended, a second one begins.
                    "start 19; sessions 2; sleep 4; stop; sleep 1\n"
                    // A header that trickles in for longer than a message may take.
                    "for byte in T A U D; do printf $byte >&3; sleep 4; done 2>/dev/null\n"
                    "cat <&3 > /tmp/replies\nstation status $at\n");
    EXPECT_EQ(tmp("replies").size(), 20u + 20u + 52u);
    EXPECT_EQ(outcome.of("insmod").size(), 2u);
    EXPECT_THAT(outcome.out, HasSubstr("no session")) << outcome.err;
    Samples heard = played();
    std::erase(heard, 0); // silence where a busy PC let the output run dry; A-law has no zero
    EXPECT_TRUE(contains(heard, zaudio::Decoder(19).decode(octets)));
    // A pipe in its place is not played, nor waited for.
    with_server("rm -f /tmp/AUDIO.G711; mkfifo /tmp/AUDIO.G711\n"
                "dial; start 19; take 20 started; sleep 2; stop; take 52 stopped; rm /tmp/AUDIO.G711\n");
    EXPECT_EQ(tmp("stopped").size(), 52u);
}

TEST_F(Audio, AStopFreesAStartThatFailedHalfWayAndDoesNotWaitForALongMessage)
{
    // The longest message is 51 seconds of sound.
    const Outcome outcome =
        with_server("dial; start 22; take 20 refusal; stop; take 52 stopped\n"
                    "start 21; take 20 started; frame 102400; sound 3200; stop; take 52 stopped2\n");
    EXPECT_THAT(console,
                HasSubstr("step 3: start Aenc\nStartAudio: invalid aenc payload type:22\nSTOP AUDIO\n"));
    EXPECT_EQ(tmp("refusal").substr(16), "\xff\xff\xff\xff");
    // One of the failed start, one of the session.
    EXPECT_EQ(std::count(outcome.journal.begin(), outcome.journal.end(), "ai disable 2 0"), 2);
    EXPECT_LT(played().size(), 40u * 8000) << "the rest is not waited for";
    EXPECT_EQ(tmp("stopped2").substr(16 + 4 * 4), std::string(20, '\0')) << "what is cut off is no damage";
}

// Ninety starts arrive in one piece.
TEST_F(Audio, AnInterruptEndsAServerThatIsBusyStarting)
{
    const Outcome outcome =
        with_server("exec 3>/tmp/one; start 19; for i in $(seq 90); do cat /tmp/one; done > /tmp/many\n"
                    "dial; cat /tmp/many >&3; sessions 1; kill -INT $SERVER; sleep 5\n");
    EXPECT_LT(outcome.of("insmod").size(), 80u) << "the rest is not begun";
}

TEST_F(Audio, WrongCommandLinesAndSignals)
{
    for (const char* arguments : {"", "0", "65536", "50x", "5000 5001", "5000 127.0.0.1 x"}) {
        const Outcome outcome = camera.run({"sh", "-c", std::string("test_audio ") + arguments});
        EXPECT_EQ(outcome.status, 255);
        EXPECT_THAT(outcome.err, HasSubstr("usage: test_audio port [address]\n"));
        EXPECT_EQ(outcome.out, "");
    }
    // A second server finds the port taken; a signal in mid-session ends the first, with everything shut down.
    const Outcome outcome = with_server(
        "record() { /run/bin/zep-audio record -t 5000 $at /tmp/x.wav & STATION=$!; sessions 1; }\n"
        "test_audio 5000; echo second $?\n"
        // One address only: another of the camera's own is refused, a foreign one cannot be had.
        "test_audio 5001 127.0.0.2 & OTHER=$!\n"
        "until /run/bin/zep-audio status 127.0.0.2 5001; do sleep 0.1; done\n"
        "/run/bin/zep-audio status 127.0.0.1 5001 || echo not heard\n"
        "kill $OTHER; wait $OTHER; test_audio 5001 192.0.2.1; echo foreign $?\n"
        "record; kill -INT $SERVER; wait $SERVER; echo first $?; wait $STATION\n"
        // Hung up: by that signal, after the path is down; not where the caller ignores it.
        "server test_audio 5000; record; kill -HUP $SERVER; wait $SERVER; echo hung up $?\n"
        "wait $STATION; trap '' HUP; server test_audio 5000; kill -HUP $SERVER; sleep 1\n");
    for (const char* text : {"second 255", "\nnot heard\n", "foreign 255", "first 0", "hung up 129"})
        EXPECT_THAT(outcome.out, HasSubstr(text));
    EXPECT_THAT(outcome.err, HasSubstr("test_audio: 192.0.2.1 port 5001: Cannot assign requested address"));
    EXPECT_EQ(std::count(outcome.journal.begin(), outcome.journal.end(), "ai disable 2 0"), 2);
    EXPECT_THAT(outcome.err, HasSubstr("the camera has closed the connection"));
}

} // namespace
