// The audio server with stations that behave and stations that do not; no session starts here.
#include "factory/audio_server.hpp"

#include "common/base/bytes.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <dirent.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace zep;
using Bytes = std::vector<uint8_t>;

int count_descriptors()
{
    int count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder)) ++count;
    closedir(folder);
    return count;
}

class Station {
public:
    explicit Station(uint16_t port) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    }
    void send(uint16_t command, uint32_t number, const Bytes& body = {}) const
    {
        uint8_t header[AUDIO_WIRE_HEADER];
        write_header({command, uint32_t(body.size()), number}, header);
        Bytes all(header, header + sizeof header);
        all.insert(all.end(), body.begin(), body.end());
        EXPECT_EQ(::send(fd.get(), all.data(), all.size(), MSG_NOSIGNAL), ssize_t(all.size()));
    }
    // The next `count` bytes, or fewer when the server closes.
    [[nodiscard]] Bytes receive(size_t count) const
    {
        Bytes all(count);
        size_t have = 0;
        while (have < count) {
            pollfd wanted = {fd.get(), POLLIN, 0};
            if (poll(&wanted, 1, 5000) <= 0) break;
            const ssize_t got = recv(fd.get(), all.data() + have, count - have, 0);
            if (got <= 0) break;
            have += size_t(got);
        }
        all.resize(have);
        return all;
    }
    // Words of a reply; empty when the server closes instead.
    [[nodiscard]] std::vector<uint32_t> reply(uint16_t command, uint32_t number) const
    {
        const Bytes header = receive(AUDIO_WIRE_HEADER);
        if (header.size() != AUDIO_WIRE_HEADER) return {};
        EXPECT_EQ(header[6] | header[7] << 8, command | AUDIO_WIRE_REPLY);
        EXPECT_EQ(load_le32(header.data() + 12), number);
        const Bytes body = receive(load_le32(header.data() + 8));
        std::vector<uint32_t> words;
        for (size_t i = 0; i + 4 <= body.size(); i += 4) words.push_back(load_le32(body.data() + i));
        return words;
    }
    [[nodiscard]] bool closed() const { return receive(1).empty(); }

    Fd fd;
};

class Server : public testing::Test {
protected:
    Server() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        EXPECT_EQ(pipe(end_), 0);
        sockaddr_in own = {};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof own;
        EXPECT_EQ(bind(listener_.get(), reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
        EXPECT_EQ(listen(listener_.get(), 10), 0);
        EXPECT_EQ(getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&own), &length), 0);
        port = ntohs(own.sin_port);
        thread_ = std::thread([this] { AudioServer(listener_.get(), end_[0]).run(); });
    }
    ~Server() override
    {
        EXPECT_EQ(write(end_[1], "", 1), 1);
        thread_.join();
        close(end_[0]);
        close(end_[1]);
    }
    uint16_t port = 0;

private:
    Fd listener_;
    int end_[2];
    std::thread thread_;
};

const std::vector<uint32_t> kAtRest(AUDIO_WIRE_STATUS_WORDS, 0);

TEST_F(Server, AnswersAStationAndRefusesTheNextOneUntilItHasGone)
{
    {
        const Station first(port);
        first.send(AUDIO_WIRE_STATUS, 7);
        EXPECT_EQ(first.reply(AUDIO_WIRE_STATUS, 7), kAtRest);
        // Requests that the server does not read must not cost the refusal; the oldest of many may go early.
        for (int many = 0; many < 6; ++many) {
            const Station second(port);
            second.send(AUDIO_WIRE_STATUS, 1);
            second.send(AUDIO_WIRE_FRAME, 0, Bytes(50'000));
            EXPECT_EQ(second.reply(AUDIO_WIRE_BUSY, 0), std::vector<uint32_t>{uint32_t(-EBUSY)}) << many;
            EXPECT_TRUE(second.closed());
        }
        first.send(AUDIO_WIRE_FRAME, 0, {1, 2, 3});
        first.send(AUDIO_WIRE_STOP, 8);
        EXPECT_EQ(first.reply(AUDIO_WIRE_STOP, 8), kAtRest) << "a frame outside a session is dropped";
        Bytes start(AUDIO_WIRE_START_WORDS * 4);
        first.send(AUDIO_WIRE_START_ENCODE, 9, start);
        EXPECT_EQ(first.reply(AUDIO_WIRE_START_ENCODE, 9), std::vector<uint32_t>{uint32_t(-EINVAL)})
            << "mode 0 in a command that says 1";
    }
    for (int tries = 0;; ++tries) {
        const Station next(port);
        next.send(AUDIO_WIRE_STATUS, 1);
        const Bytes header = next.receive(AUDIO_WIRE_HEADER);
        ASSERT_EQ(header.size(), size_t(AUDIO_WIRE_HEADER));
        if (header[6] == (AUDIO_WIRE_STATUS | AUDIO_WIRE_REPLY)) break;
        ASSERT_LT(tries, 100) << "the place is free again";
    }
}

TEST_F(Server, FaultsEndTheConnectionAndNothingElse)
{
    const int before = count_descriptors();
    const Bytes faults[] = {
        Bytes(AUDIO_WIRE_HEADER, 0),
        Bytes(5000, 0xFF),
        {'T', 'A', 'U', 'D', 1, 0, 4, 0, 0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0},
        {'T', 'A', 'U', 'D', 1, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0},
    };
    for (int round = 0; round < 250; ++round) {
        const Bytes& fault = faults[round % std::size(faults)];
        const Station station(port);
        EXPECT_EQ(::send(station.fd.get(), fault.data(), fault.size(), MSG_NOSIGNAL), ssize_t(fault.size()));
        EXPECT_TRUE(station.closed()) << round;
    }
    const Station good(port);
    good.send(AUDIO_WIRE_STATUS, 1);
    EXPECT_EQ(good.reply(AUDIO_WIRE_STATUS, 1), kAtRest);
    EXPECT_LE(count_descriptors(), before + 2) << "the good station's two ends";
}

TEST_F(Server, AStationThatAsksAndNeverListensIsGivenUp)
{
    const Station deaf(port);
    uint8_t header[AUDIO_WIRE_HEADER];
    write_header({AUDIO_WIRE_STATUS, 0, 0}, header);
    Bytes many;
    for (int i = 0; i < 4096; ++i) many.insert(many.end(), header, header + sizeof header);
    // Its replies fill both ends' buffers, and the server stops waiting after its limit.
    const auto start = std::chrono::steady_clock::now();
    timeval limit = {20, 0};
    setsockopt(deaf.fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    while (::send(deaf.fd.get(), many.data(), many.size(), MSG_NOSIGNAL) > 0) {
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    const Station next(port);
    next.send(AUDIO_WIRE_STATUS, 1);
    EXPECT_EQ(next.reply(AUDIO_WIRE_STATUS, 1), kAtRest);
}

} // namespace
