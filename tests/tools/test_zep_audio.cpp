// zep-audio against a camera that is made by hand: it hands back what it is sent, or misbehaves.
#include "tests/support/run.hpp"
#include "tests/support/temp_folder.hpp"

#include <arpa/inet.h>
#include <atomic>
#include <cmath>
#include <csignal>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <mutex>
#include <thread>
#include <utility>

using testing::AllOf;
using testing::HasSubstr;

namespace {

Said run(const std::string& arguments) { return say(ZEP_AUDIO " " + arguments + " 2>&1"); }

// The number behind a name; NAN without it.
double value(const Said& said, const char* name)
{
    const size_t at = said.text.find(name);
    return at == std::string::npos ? NAN : atof(said.text.c_str() + at + strlen(name));
}

// The wire as the camera's side reads it, written out once more: 16 bytes, numbers little-endian.
std::string number(uint32_t value, int bytes)
{
    return {reinterpret_cast<const char*>(&value), size_t(bytes)};
}
uint32_t number_at(const std::string& bytes, size_t at, size_t count)
{
    uint32_t value = 0;
    memcpy(&value, &bytes[at], count);
    return value;
}
std::string message(uint32_t command, uint32_t sequence, const std::string& body)
{
    return "TAUD" + number(1, 2) + number(command, 2) + number(uint32_t(body.size()), 4) +
           number(sequence, 4) + body;
}

// One connection of the fake camera.
struct Peer {
    int fd;
    bool read(std::string& bytes, size_t count) const
    {
        bytes.resize(count);
        return count == 0 || recv(fd, bytes.data(), count, MSG_WAITALL) == ssize_t(count);
    }
    void write(const std::string& bytes) const { ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
};
using Serve = std::function<void(Peer)>;

// Serves connections one after another until it goes.
class FakeCamera {
public:
    explicit FakeCamera(Serve serve, std::chrono::milliseconds late = {})
        : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in own = {};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof own;
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
        if (late.count() == 0) listen(listener_, 5);
        EXPECT_EQ(getsockname(listener_, reinterpret_cast<sockaddr*>(&own), &length), 0);
        address = "127.0.0.1 " + std::to_string(ntohs(own.sin_port)) + " ";
        thread_ = std::thread([this, late, serve = std::move(serve)] {
            std::this_thread::sleep_for(late);
            listen(listener_, 5);
            for (int fd; (fd = accept(listener_, nullptr, nullptr)) >= 0; close(fd)) serve(Peer{fd});
        });
    }
    ~FakeCamera()
    {
        shutdown(listener_, SHUT_RDWR);
        thread_.join();
        close(listener_);
    }
    std::string address;

private:
    int listener_;
    std::thread thread_;
};

// What a well-behaved camera answers; `on_frame` gets each frame and may send, `on_start` is told of a session.
void serve_session(
    Peer peer, const std::function<void(const std::string& frame)>& on_frame,
    const std::function<void()>& on_start = [] {})
{
    uint32_t received = 0;
    for (std::string header, body; peer.read(header, 16) && peer.read(body, number_at(header, 8, 4));) {
        EXPECT_EQ(header.substr(0, 4), "TAUD");
        const uint32_t command = number_at(header, 6, 2), sequence = number_at(header, 12, 4);
        if (command == 4) {
            EXPECT_EQ(sequence, received++);
            on_frame(body);
            continue;
        }
        const bool start = command == 1 || command == 2;
        EXPECT_EQ(body.size(), start ? 28u : 0u);
        std::string words = number(0, 4);
        if (!start)
            for (uint32_t word : {1u, 0u, received, 0u, 0u, 0u}) words += number(word, 4);
        peer.write(message(command | 0x80, sequence, words));
        if (start) on_start();
    }
}

// Sends every frame back, the first one more often: so much later does the sound come back. Samples on a wire of LPCM
// may be spoilt by their place.
using Spoil = int16_t (*)(int16_t sample, int place);
Serve echo(int late_frames, Spoil spoil = nullptr)
{
    return [=](Peer peer) {
        uint32_t sent = 0;
        int place = 0;
        serve_session(peer, [&](std::string frame) {
            for (size_t i = 0; spoil && i + 1 < frame.size(); i += 2)
                frame.replace(i, 2, number(uint16_t(spoil(int16_t(number_at(frame, i, 2)), place++)), 2));
            for (int i = sent ? 0 : late_frames; i >= 0; --i) peer.write(message(4, sent++, frame));
        });
    };
}

TEST(ZepAudio, AVerdictFindsToneAndDelayAndFailsForALineThatIsDeadWeakOrNoisy)
{
    const struct {
        const char* options;
        double snr_least; // of the codec at this level; 0: the line is spoilt
        Spoil spoil;
        const char* text;
    } rows[] = {
        {"-c lpcm", 60, nullptr, ""},
        {"-c g711a", 33, nullptr, ""},
        {"-c g711u", 33, nullptr, ""},
        {"-c adpcm", 15, nullptr, ""},
        {"-c g726", 8, nullptr, ""},
        {"-c lpcm -r 48000 -f 3000", 60, nullptr, ""},
        {"-c lpcm", 0, [](int16_t, int) { return int16_t(0); }, "nothing of what was sent comes back"},
        {"-c lpcm", 0, [](int16_t x, int) { return int16_t(x / 64); },
         "level               -48.2 dB  OUT OF LIMITS"},
        {"-c lpcm", 0, [](int16_t x, int i) { return int16_t(x + (i * 7919 % 4001) - 2000); },
         "dB  OUT OF LIMITS"},
        {"-c lpcm", 0, [](int16_t x, int i) { return int16_t(i < 6400 ? x : 0); },
         "OUT OF LIMITS"}, // stops early
        {"-c lpcm", 0, [](int16_t x, int i) { return int16_t(i < 10000 || i >= 10480 ? x : 0); },
         "interrupted          60.0 ms  OUT OF LIMITS"},
    };
    std::vector<std::future<void>> all;
    for (const auto& row : rows)
        all.push_back(std::async(std::launch::async, [&row] {
            const bool good = !row.spoil;
            const FakeCamera camera(echo(good ? 5 : 0, row.spoil));
            const Said said = run(std::string("verdict -t 0.8 ") + (good ? "--snr 5 " : "") + row.options +
                                  " " + camera.address);
            SCOPED_TRACE(row.options + said.text);
            EXPECT_EQ(said.status, good ? 0 : 1);
            EXPECT_THAT(said.text,
                        AllOf(HasSubstr(row.text), HasSubstr(good ? "\nsuccessful\n" : "failed\n")));
            if (!good) return;
            EXPECT_THAT(said.text, HasSubstr("unheard 0; lost in the camera's input 0;"));
            EXPECT_NEAR(value(said, "delay"), 5 * (strstr(row.options, "48000") ? 160 / 48.0 : 20), 0.5);
            EXPECT_NEAR(value(said, "frequency"), strstr(row.options, "3000") ? 3000 : 1000, 1);
            EXPECT_NEAR(value(said, "level"), -12, row.snr_least < 30 ? 1.5 : 0.3);
            EXPECT_GT(value(said, "signal to noise"), row.snr_least);
        }));
    for (auto& one : all) one.get();
}

TEST(ZepAudio, UnderRunsAndLostFramesAreNoFaultOfTheLine)
{
    const FakeCamera camera([](Peer peer) {
        uint32_t sent = 0, taken = 0;
        serve_session(peer, [&](const std::string& frame) {
            ++taken;
            for (int i = 0; taken == 70 && i < 3; ++i)
                peer.write(message(4, sent++, std::string(frame.size(), '\0')));
            if (taken == 80) ++sent; // the input lost this one
            if (taken != 80) peer.write(message(4, sent++, frame));
        });
    });
    const Said said = run("verdict -t 1.5 -c lpcm " + camera.address);
    EXPECT_EQ(said.status, 0) << said.text;
    for (const char* part :
         {"under-runs           60.0 ms", "interrupted           0.0 ms", "input 1;", "successful\n"})
        EXPECT_THAT(said.text, HasSubstr(part));
}

TEST(ZepAudio, AnInterruptedRecordingIsAWholeFileAndTheMeterKeepsToItsLine)
{
    const TempFolder folder;
    const std::string pid = folder / "pid", out = folder / "out.wav";
    const FakeCamera camera([&](Peer peer) {
        serve_session(
            peer, [](const std::string&) {},
            [&] {
                for (uint32_t i = 0; i < 50; ++i) peer.write(message(4, i, std::string(320, '\x10')));
                kill(stoi(read_file(pid)), SIGINT);
            });
    });
    const Said said = say("script -qec \"stty cols 30; sh -c 'echo \\$\\$ > " + pid +
                          "; exec " ZEP_AUDIO " record -m -c lpcm -t 600 " + camera.address + out +
                          "'\" /dev/null; soxi -s " + out);
    EXPECT_THAT(said.text, HasSubstr("\n8000\n"));
    const size_t line = said.text.find('\r'), end = said.text.find("\033[K");
    EXPECT_EQ(end - line, 30u) << said.text;
    EXPECT_THAT(said.text, HasSubstr("dB, peak"));

    // The camera goes instead.
    const FakeCamera leaving([](Peer peer) {
        serve_session(
            peer, [](const std::string&) {},
            [&] {
                for (uint32_t i = 0; i < 50; ++i) peer.write(message(4, i, std::string(320, '\x10')));
                shutdown(peer.fd, SHUT_RDWR);
            });
    });
    const Said left = run("record -c lpcm -t 600 " + leaving.address + out);
    EXPECT_EQ(left.status, 2);
    EXPECT_THAT(left.text, HasSubstr("closed the connection; " + out + " holds the 1.00 s until then"));
    EXPECT_EQ(say("soxi -s " + out).text, "8000\n");
}

TEST(ZepAudio, WhatIsPlayedAndRecordedIsTheFile)
{
    const TempFolder folder;
    const std::string in = folder / "in.wav", out = folder / "out.wav";
    ASSERT_EQ(say("sox -n -r 16000 -b 16 -c 1 " + in + " synth 0.5 sine 440 gain -6").status, 0);
    std::mutex guard;
    std::string heard; // by the camera's thread
    const auto played = [&] {
        const std::lock_guard lock(guard);
        return std::exchange(heard, "");
    };
    const FakeCamera camera([&](Peer peer) {
        uint32_t sent = 0;
        serve_session(peer, [&](const std::string& frame) {
            const std::lock_guard lock(guard);
            heard += frame;
            peer.write(message(4, sent++, frame));
        });
    });
    Said said = run("play -c lpcm " + camera.address + in);
    EXPECT_EQ(said.status, 0) << said.text;
    const std::string first = played();
    EXPECT_EQ(first.size() % 640, 0u) << "whole frames of 320 points";
    // 24 bits, two channels in an extensible header, another rate: the same sound, but for its ringing ends.
    const std::string wide = folder / "wide.wav";
    ASSERT_EQ(say("sox " + in + " -r 48000 -b 24 -c 2 " + wide).status, 0);
    said = run("play -r 16000 -c lpcm " + camera.address + wide);
    EXPECT_EQ(said.status, 0) << said.text;
    const std::string second = played();
    ASSERT_EQ(second.size(), first.size());
    for (size_t i = 1000; i + 2000 < first.size(); i += 2)
        ASSERT_NEAR(int16_t(number_at(second, i, 2)), int16_t(number_at(first, i, 2)), 40) << i;
    said = run("loop -c lpcm " + camera.address + in + " " + out);
    EXPECT_EQ(said.status, 0) << said.text;
    EXPECT_THAT(said.text, HasSubstr("comes back after 0.0 ms"));
    // Both files as another program reads them: the second without its silence is the first.
    const auto raw = [](const std::string& file) { return say("sox " + file + " -t raw - trim 0 0.5").text; };
    EXPECT_TRUE(raw(in) == raw(out));
    said = run("record -c lpcm -r 16000 -t 0.4 --limit 3 " + camera.address + out);
    EXPECT_EQ(said.status, 2) << "this camera sends only what it gets";
    EXPECT_THAT(said.text, HasSubstr("no sound"));
}

TEST(ZepAudio, AToneFromElsewhereIsRecordedAndJudged)
{
    const TempFolder folder;
    const std::string out = folder / "out.wav";
    const FakeCamera camera([](Peer peer) {
        std::atomic<bool> over = false;
        std::thread sender;
        serve_session(
            peer, [](const std::string&) {},
            [&] {
                sender = std::thread([&over, peer] {
                    for (uint32_t i = 0; !over; ++i) {
                        std::string frame;
                        for (uint32_t k = 0; k < 160; ++k)
                            frame += number(uint16_t(8192 * sin(2 * M_PI * 1004 * (i * 160 + k) / 8000)), 2);
                        peer.write(message(4, i + (i > 20), frame)); // one is lost
                        std::this_thread::sleep_for(std::chrono::milliseconds(5));
                    }
                });
            });
        over = true;
        if (sender.joinable()) sender.join();
    });
    Said said = run("verdict --listen -t 0.8 -c lpcm " + camera.address + out);
    EXPECT_EQ(said.status, 0) << said.text;
    EXPECT_THAT(said.text, AllOf(HasSubstr("1004.0 Hz  good"), HasSubstr("lost in the camera's input 1;")));
    // What others make of the file.
    EXPECT_NEAR(value(say("sox " + out + " -n stat 2>&1"), "Maximum amplitude:"), 0.25, 0.001);
    said = run("verdict --listen -t 0.8 -c lpcm -f 700 " + camera.address);
    EXPECT_EQ(said.status, 1) << said.text;
}

TEST(ZepAudio, WhatACameraCanDoWrongIsSaidInOneLine)
{
    const auto answer = [](const std::string& bytes) {
        return [=](Peer peer) {
            std::string header;
            if (!peer.read(header, 16)) return;
            peer.write(bytes);
            while (peer.read(header, 1)) {
            }
        };
    };
    const TempFolder folder;
    const std::string status = message(0x85, 1, std::string(28, 0)); // the station asks for it first
    const std::pair<Serve, std::string> cases[] = {
        {[](Peer) {}, "closed the connection"},
        {answer(""), "does not answer"},
        {answer("HTTP/1.1 400 Bad Request\r\n\r\n"), "no test_audio"},
        {answer("TAUD" + number(2, 2) + std::string(10, 0)), "another version"},
        {answer("TAUD" + number(1, 2) + number(0x81, 2) + number(0xFFFFFFFF, 4) + number(1, 4)), "too long"},
        {answer(message(0x86, 0, number(uint32_t(-16), 4))), "another station"},
        {answer(status + message(0x81, 2, number(0xA0178003, 4))),
         "refuses the session: 0xa0178003, audio encoder: illegal parameter\n"},
        {answer(status + message(0x81, 2, number(uint32_t(-1), 4))), "session: -1, the camera's console"},
        {answer(status + message(0x81, 2, number(0, 4)) + message(0x84, 1, number(uint32_t(-5), 4))),
         "ended by itself (-5, Input/output error)"},
    };
    for (const auto& [serve, complaint] : cases) {
        const FakeCamera camera(serve);
        const char* limit = complaint == "does not answer" ? "1 " : "30 "; // a busy host is no silent one
        const Said said = run("record --limit " + (limit + camera.address) + folder / "never-written.wav");
        EXPECT_EQ(said.status, 2);
        EXPECT_THAT(said.text, HasSubstr(complaint));
        EXPECT_EQ(std::count(said.text.begin(), said.text.end(), '\n'), 1) << said.text;
        EXPECT_EQ(folder.entries(), 0u);
    }
}

TEST(ZepAudio, AFileOrAHostThatIsNotThere)
{
    for (const char* arguments : {"play 127.0.0.1 1 /nonexistent.wav", "play 127.0.0.1 1 /etc/passwd",
                                  "status 127.0.0.1 1", "status no-such-host.invalid 1"})
        EXPECT_EQ(run(arguments).status, 2) << arguments;
    const FakeCamera late([](Peer peer) { serve_session(peer, [](const std::string&) {}); },
                          std::chrono::milliseconds(500));
    EXPECT_EQ(run("status --wait 100 " + late.address).status, 0);
}

} // namespace
