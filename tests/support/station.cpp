// A station of test_audio that takes and gives encoded frames as they are, so that what comes back can be compared.
//   tone FILE                    writes ten seconds of a saw tooth as the microphone's file
//   hear PAYLOAD COUNT FILE      takes the first COUNT frames of the microphone, each behind its length
//   play PAYLOAD FILE            gives them to the loudspeaker and waits until they have been played
#include "factory/audio_wire.h"

#include <arpa/inet.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr uint16_t kPort = 5000;
constexpr int32_t kRate = 8000, kVolume = 15, kMicrophone = 1;

std::string le32(uint32_t v) { return {char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; }
uint32_t word(const char* at)
{
    uint32_t value;
    memcpy(&value, at, sizeof value);
    return value;
}

[[noreturn]] void give_up(const char* why)
{
    perror(why);
    exit(1);
}

class Station {
public:
    Station()
    {
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_port = htons(kPort);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd_, reinterpret_cast<sockaddr*>(&to), sizeof to) < 0) give_up("connect");
    }
    ~Station() { close(fd_); }
    Station(const Station&) = delete;
    Station& operator=(const Station&) = delete;

    void send_message(uint32_t command, const std::string& body) const
    {
        const std::string all = AUDIO_WIRE_MAGIC + le32(AUDIO_WIRE_VERSION | command << 16) +
                                le32(uint32_t(body.size())) + le32(0) + body;
        if (send(fd_, all.data(), all.size(), MSG_NOSIGNAL) != ssize_t(all.size())) give_up("send");
    }
    void start(uint32_t command, int32_t payload) const
    {
        std::string body;
        const int32_t mode = command == AUDIO_WIRE_START_ENCODE;
        for (const int32_t value : {mode, payload, kRate, kMicrophone, kVolume, 0, 0})
            body += le32(uint32_t(value));
        send_message(command, body);
    }
    uint32_t take(std::string& body) const // its command
    {
        std::string head = whole(AUDIO_WIRE_HEADER);
        body = whole(word(head.data() + 8));
        return word(head.data() + 4) >> 16;
    }
    void stop() const
    {
        send_message(AUDIO_WIRE_STOP, "");
        std::string body;
        while (take(body) != (AUDIO_WIRE_STOP | AUDIO_WIRE_REPLY)) {
        }
        printf("result %d, received %u, dropped %u, damaged %u\n", int(word(body.data())),
               word(body.data() + 12), word(body.data() + 16), word(body.data() + 20));
    }

private:
    [[nodiscard]] std::string whole(size_t size) const
    {
        std::string bytes(size, '\0');
        for (size_t at = 0; at < size;) {
            const ssize_t n = recv(fd_, bytes.data() + at, size - at, 0);
            if (n <= 0) give_up("recv");
            at += size_t(n);
        }
        return bytes;
    }
    const int fd_ = socket(AF_INET, SOCK_STREAM, 0);
};

int tone(const char* file)
{
    constexpr int kPeriod = 40, kStep = 500;
    std::string samples;
    for (int i = 0; i < 10 * kRate; ++i) {
        const int value = (i % kPeriod - kPeriod / 2) * kStep;
        samples += {char(value), char(value >> 8)};
    }
    std::ofstream(file) << "RIFF" + le32(uint32_t(36 + samples.size())) + "WAVEfmt " + le32(16) +
                               le32(1 | 1 << 16) + le32(kRate) + le32(2 * kRate) + le32(2 | 16 << 16) +
                               "data" + le32(uint32_t(samples.size())) + samples;
    return 0;
}

int hear(int32_t payload, int count, const char* file)
{
    const Station station;
    station.start(AUDIO_WIRE_START_ENCODE, payload);
    std::ofstream to(file);
    for (std::string body; count > 0;) {
        const uint32_t command = station.take(body);
        if (command == (AUDIO_WIRE_FRAME | AUDIO_WIRE_REPLY)) {
            printf("ended by %d\n", int(word(body.data())));
            break;
        }
        if (command != AUDIO_WIRE_FRAME) continue;
        to << le32(uint32_t(body.size())) << body;
        --count;
    }
    station.stop();
    return 0;
}

int play(int32_t payload, const char* file)
{
    constexpr unsigned kPlayed = 2; // seconds, which the frames fill half of
    std::ifstream in(file);
    const std::string all{std::istreambuf_iterator<char>(in), {}};
    const Station station;
    station.start(AUDIO_WIRE_START_DECODE, payload);
    for (size_t at = 0; at + 4 <= all.size(); at += 4 + word(all.data() + at))
        station.send_message(AUDIO_WIRE_FRAME, all.substr(at + 4, word(all.data() + at)));
    sleep(kPlayed);
    station.stop();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string action = argc > 1 ? argv[1] : "";
    if (action == "tone" && argc == 3) return tone(argv[2]);
    if (action == "hear" && argc == 5) return hear(atoi(argv[2]), atoi(argv[3]), argv[4]);
    if (action == "play" && argc == 4) return play(atoi(argv[2]), argv[3]);
    return 2;
}
