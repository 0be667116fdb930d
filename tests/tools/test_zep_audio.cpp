// zep-audio against a camera that is made by hand: it hands back what it is sent, or misbehaves.
#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

namespace {

struct Outcome {
    int status = -1;
    std::string output; // both streams
};

Outcome run(const std::string& arguments)
{
    Outcome outcome;
    FILE* pipe = popen((std::string(ZEP_AUDIO) + " " + arguments + " 2>&1").c_str(), "r");
    char piece[4096];
    while (size_t n = fread(piece, 1, sizeof piece, pipe)) outcome.output.append(piece, n);
    const int status = pclose(pipe);
    if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
    return outcome;
}

// The wire as the camera's side reads it, written out once more: 16 bytes, numbers little-endian.
std::string number(uint32_t value, int bytes)
{
    std::string out;
    for (int i = 0; i < bytes; ++i) out += char(value >> (8 * i));
    return out;
}
uint32_t number_at(const std::string& bytes, size_t at, int count)
{
    uint32_t value = 0;
    for (int i = count; i-- > 0;) value = value << 8 | uint8_t(bytes[at + size_t(i)]);
    return value;
}
std::string message(uint32_t command, uint32_t sequence, const std::string& body)
{
    return "TAUD" + number(1, 2) + number(command, 2) + number(uint32_t(body.size()), 4) +
           number(sequence, 4) + body;
}

// One connection of the fake camera.
class Peer {
public:
    explicit Peer(int fd) : fd_(fd) {}
    bool read(std::string& bytes, size_t count) const
    {
        bytes.resize(count);
        return count == 0 || recv(fd_, bytes.data(), count, MSG_WAITALL) == ssize_t(count);
    }
    void write(const std::string& bytes) const { ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    [[nodiscard]] bool waiting() const
    {
        pollfd wanted = {fd_, POLLIN, 0};
        return poll(&wanted, 1, 0) > 0;
    }

private:
    int fd_;
};

// Serves connections one after another until it goes.
class FakeCamera {
public:
    using Serve = std::function<void(Peer)>;
    explicit FakeCamera(Serve serve) : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in own = {};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof own;
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
        EXPECT_EQ(listen(listener_, 5), 0);
        EXPECT_EQ(getsockname(listener_, reinterpret_cast<sockaddr*>(&own), &length), 0);
        address = "127.0.0.1 " + std::to_string(ntohs(own.sin_port)) + " ";
        thread_ = std::thread([this, serve = std::move(serve)] {
            for (int fd; (fd = accept(listener_, nullptr, nullptr)) >= 0; close(fd)) serve(Peer(fd));
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

// What a well-behaved camera answers; `on_frame` gets each frame and may send.
void serve_session(const Peer& peer, const std::function<void(const std::string& frame)>& on_frame)
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
    }
}

// Sends every frame back, the first one more often: so much later does the sound come back.
FakeCamera::Serve echo(int late_frames)
{
    return [=](Peer peer) {
        uint32_t sent = 0;
        serve_session(peer, [&](const std::string& frame) {
            if (sent == 0)
                for (int i = 0; i < late_frames; ++i) peer.write(message(4, sent++, frame));
            peer.write(message(4, sent++, frame));
        });
    };
}

TEST(ZepAudio, FindsItsToneAndTheDelayWithEachCodec)
{
    struct Case {
        const char* options;
        double snr_least; // of the codec at this level
    };
    const Case cases[] = {{"-c lpcm", 60},  {"-c g711a", 33}, {"-c g711u", 33},
                          {"-c adpcm", 15}, {"-c g726", 8},   {"-c lpcm -r 48000 -f 3000", 60}};
    std::vector<std::future<void>> all;
    for (const Case& c : cases)
        all.push_back(std::async(std::launch::async, [&c] {
            const FakeCamera camera(echo(5));
            const Outcome outcome =
                run(std::string("verdict -t 0.8 --snr 5 ") + c.options + " " + camera.address);
            SCOPED_TRACE(c.options + outcome.output);
            EXPECT_EQ(outcome.status, 0);
            const auto value = [&](const char* name) {
                const size_t at = outcome.output.find(name);
                return at == std::string::npos ? NAN : atof(outcome.output.c_str() + at + strlen(name));
            };
            const double frame_ms = strstr(c.options, "48000") ? 160 / 48.0 : 20;
            EXPECT_NEAR(value("delay"), 5 * frame_ms, 0.5);
            EXPECT_NEAR(value("frequency"), strstr(c.options, "3000") ? 3000 : 1000, 1);
            EXPECT_NEAR(value("level"), -12, c.snr_least < 30 ? 1.5 : 0.3);
            EXPECT_GT(value("signal to noise"), c.snr_least);
            EXPECT_THAT(outcome.output, AllOf(HasSubstr("unheard 0; lost in the camera's input 0;"),
                                              HasSubstr("\nsuccessful\n")));
        }));
    for (auto& one : all) one.get();
}

TEST(ZepAudio, AVerdictFailsForALineThatIsDeadWeakOrNoisy)
{
    const auto spoiled = [](std::function<int16_t(int16_t, int)> spoil) {
        return [spoil](Peer peer) {
            uint32_t sent = 0;
            int at = 0;
            serve_session(peer, [&](std::string frame) {
                for (size_t i = 0; i + 1 < frame.size(); i += 2) {
                    const int16_t sample = spoil(int16_t(number_at(frame, i, 2)), at++);
                    frame.replace(i, 2, number(uint16_t(sample), 2));
                }
                peer.write(message(4, sent++, frame));
            });
        };
    };
    struct Case {
        std::function<int16_t(int16_t, int)> spoil;
        const char* complaint;
    };
    const Case cases[] = {
        {[](int16_t, int) { return int16_t(0); }, "nothing of what was sent comes back"},
        {[](int16_t x, int) { return int16_t(x / 64); }, "level               -48.2 dB  OUT OF LIMITS"},
        {[](int16_t x, int i) { return int16_t(x + (i * 7919 % 4001) - 2000); }, "dB  OUT OF LIMITS"},
        {[](int16_t x, int i) { return int16_t(i < 6400 ? x : 0); },
         "OUT OF LIMITS"}, // it stops with the burst
    };
    std::vector<std::future<void>> all;
    for (const Case& c : cases)
        all.push_back(std::async(std::launch::async, [&] {
            const FakeCamera camera(spoiled(c.spoil));
            const Outcome outcome = run("verdict -t 0.6 -c lpcm " + camera.address);
            EXPECT_EQ(outcome.status, 1) << outcome.output;
            EXPECT_THAT(outcome.output, AllOf(HasSubstr(c.complaint), HasSubstr("failed\n")));
        }));
    for (auto& one : all) one.get();
}

TEST(ZepAudio, WhatIsPlayedAndRecordedIsTheFile)
{
    char name[] = "/tmp/zep-audio-test.XXXXXX";
    const fs::path folder = mkdtemp(name);
    const std::string in = folder / "in.wav", out = folder / "out.wav";
    ASSERT_EQ(std::system(("sox -n -r 16000 -b 16 -c 1 " + in + " synth 0.5 sine 440 gain -6").c_str()), 0);
    std::string played;
    const FakeCamera camera([&](Peer peer) {
        uint32_t sent = 0;
        serve_session(peer, [&](const std::string& frame) {
            played += frame;
            peer.write(message(4, sent++, frame));
        });
    });
    Outcome outcome = run("play -c lpcm " + camera.address + in);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(played.size() % 640, 0u) << "whole frames of 320 points";
    outcome = run("loop -c lpcm " + camera.address + in + " " + out);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("comes back after 0.0 ms"));
    // Both files as another program reads them: the second without its silence is the first.
    const std::string raw = " -t raw - trim 0 0.5";
    ASSERT_EQ(std::system(("sox " + in + raw + " > " + out + ".1 && sox " + out + raw + " > " + out +
                           ".2 && cmp " + out + ".1 " + out + ".2")
                              .c_str()),
              0);
    outcome = run("record -c lpcm -r 16000 -t 0.4 --limit 1 " + camera.address + out);
    EXPECT_EQ(outcome.status, 2) << "this camera sends only what it gets";
    EXPECT_THAT(outcome.output, HasSubstr("no sound"));
    fs::remove_all(folder);
}

TEST(ZepAudio, AToneFromElsewhereIsRecordedAndJudged)
{
    char name[] = "/tmp/zep-audio-test.XXXXXX";
    const fs::path folder = mkdtemp(name);
    const std::string out = folder / "out.wav";
    const auto source = [](Peer peer) {
        std::thread sender;
        std::atomic<bool> over = false;
        for (std::string header, body; peer.read(header, 16) && peer.read(body, number_at(header, 8, 4));) {
            const uint32_t command = number_at(header, 6, 2);
            std::string words = number(0, 4);
            for (int i = 0; command > 2 && i < 6; ++i) words += number(0, 4);
            peer.write(message(command | 0x80, number_at(header, 12, 4), words));
            if (command > 2) continue;
            sender = std::thread([&] {
                for (uint32_t i = 0; !over; ++i) {
                    std::string frame;
                    for (uint32_t k = 0; k < 160; ++k)
                        frame += number(uint16_t(8192 * sin(2 * M_PI * 1004 * (i * 160 + k) / 8000)), 2);
                    peer.write(message(4, i + (i > 20), frame)); // one is lost
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                }
            });
        }
        over = true;
        if (sender.joinable()) sender.join();
    };
    const FakeCamera camera(source);
    Outcome outcome = run("verdict --listen -t 0.8 -c lpcm " + camera.address + out);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(outcome.output,
                AllOf(HasSubstr("1004.0 Hz  good"), HasSubstr("lost in the camera's input 1;")));
    // What others make of the file.
    FILE* pipe = popen(("sox " + out + " -n stat 2>&1").c_str(), "r");
    std::string text(4096, 0);
    text.resize(fread(text.data(), 1, text.size(), pipe));
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_NEAR(atof(text.c_str() + text.find("Maximum amplitude:") + 18), 0.25, 0.001);
    outcome = run("verdict --listen -t 0.8 -c lpcm -f 700 " + camera.address);
    EXPECT_EQ(outcome.status, 1) << outcome.output;
    fs::remove_all(folder);
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
    const std::string status = message(0x85, 1, std::string(28, 0)); // the station asks for it first
    const std::pair<FakeCamera::Serve, const char*> cases[] = {
        {[](Peer) {}, "closed the connection"},
        {answer(""), "does not answer"},
        {answer("HTTP/1.1 400 Bad Request\r\n\r\n"), "no test_audio"},
        {answer("TAUD" + number(2, 2) + std::string(10, 0)), "another version"},
        {answer("TAUD" + number(1, 2) + number(0x81, 2) + number(0xFFFFFFFF, 4) + number(1, 4)), "too long"},
        {answer(message(0x86, 0, number(uint32_t(-16), 4))), "another station"},
        {answer(status + message(0x81, 2, number(0xA0178003, 4))),
         "refuses the session: -1609072637 (0xa0178003)"},
        {answer(status + message(0x81, 2, number(0, 4)) + message(0x84, 1, number(uint32_t(-5), 4))),
         "ended by itself (-5)"},
    };
    for (const auto& [serve, complaint] : cases) {
        const FakeCamera camera(serve);
        const char* limit =
            strcmp(complaint, "does not answer") == 0 ? "1 " : "30 "; // a busy host is no silent one
        const Outcome outcome = run("record --limit " + (limit + camera.address) + "/tmp/never-written.wav");
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.output, HasSubstr(complaint));
        EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 1) << outcome.output;
        EXPECT_FALSE(fs::exists("/tmp/never-written.wav"));
    }
}

TEST(ZepAudio, WrongUsageAndFiles)
{
    for (const char* arguments :
         {"play 127.0.0.1 1", "status 127.0.0.1", "status 127.0.0.1 1 2", "record -c mp3 127.0.0.1 1 x",
          "record -r 7999 127.0.0.1 1 x", "record -t x 127.0.0.1 1 x", "verdict --snr 1e9 127.0.0.1 1",
          "record --bogus 127.0.0.1 1 x", "play 127.0.0.1 1 /nonexistent.wav", "play 127.0.0.1 1 /etc/passwd",
          "status 127.0.0.1 1", "status no-such-host.invalid 1"}) {
        EXPECT_EQ(run(arguments).status, 2) << arguments;
    }
    EXPECT_EQ(run("--help").status, 0);
}

} // namespace
