// The audio server with stations that behave and stations that do not; no session starts here.
#include "factory/audio_server.hpp"

#include "common/base/bytes.hpp"
#include "tests/support/socket_helpers.hpp"

#include <cerrno>
#include <filesystem>
#include <netinet/in.h>
#include <thread>
#include <vector>

namespace {

using namespace zep;
using Bytes = std::vector<uint8_t>;
using Words = std::vector<uint32_t>;

const Words kAtRest(AUDIO_WIRE_STATUS_WORDS, 0);

long count_descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

struct Station {
    explicit Station(sockaddr_in to)
    {
        EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    }
    void send(const Bytes& bytes) const
    {
        EXPECT_EQ(::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), ssize_t(bytes.size()));
    }
    void send(uint16_t command, uint32_t number, const Bytes& body = {}) const
    {
        uint8_t header[AUDIO_WIRE_HEADER];
        write_header({command, uint32_t(body.size()), number}, header);
        send(Bytes(header, header + sizeof header));
        if (!body.empty()) send(body);
    }
    // The next `count` bytes; none when the server closes.
    [[nodiscard]] Bytes receive(size_t count) const
    {
        Bytes bytes(count);
        const ssize_t got = recv(fd.get(), bytes.data(), count, MSG_WAITALL);
        return got == ssize_t(count) ? bytes : Bytes();
    }
    // Words of a reply, which must be one to this; none when the server closes instead.
    [[nodiscard]] Words reply(uint16_t command, uint32_t number) const
    {
        const Bytes header = receive(AUDIO_WIRE_HEADER);
        if (header.empty()) return {};
        EXPECT_EQ(load_le16(&header[6]), command | AUDIO_WIRE_REPLY);
        EXPECT_EQ(load_le32(&header[12]), number);
        const Bytes body = receive(load_le32(&header[8]));
        Words words;
        for (size_t i = 0; i < body.size(); i += 4) words.push_back(load_le32(&body[i]));
        return words;
    }
    [[nodiscard]] Words status(uint32_t number) const
    {
        send(AUDIO_WIRE_STATUS, number);
        return reply(AUDIO_WIRE_STATUS, number);
    }
    [[nodiscard]] bool closed() const { return receive(1).empty(); }

    Fd fd{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

class Server : public testing::Test {
protected:
    Server()
    {
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(listener_.get(), reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
        EXPECT_EQ(listen(listener_.get(), 10), 0);
        own.sin_port = htons(uint16_t(port_of(listener_.get())));
        thread_ = std::thread([this] { AudioServer(listener_.get(), end_.far.get()).run(); });
    }
    ~Server() override
    {
        EXPECT_EQ(write(end_.near.get(), "", 1), 1);
        thread_.join();
    }
    sockaddr_in own = {};

private:
    Fd listener_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    SocketPair end_;
    std::thread thread_;
};

TEST_F(Server, AnswersAStationAndRefusesTheNextOneUntilItHasGone)
{
    {
        const Station first(own);
        EXPECT_EQ(first.status(7), kAtRest);
        // Requests that the server does not read must not cost the refusal; the oldest of many may go early.
        for (int many = 0; many < 6; ++many) {
            const Station second(own);
            second.send(AUDIO_WIRE_STATUS, 1);
            second.send(AUDIO_WIRE_FRAME, 0, Bytes(50'000));
            EXPECT_EQ(second.reply(AUDIO_WIRE_BUSY, 0), Words{uint32_t(-EBUSY)}) << many;
            EXPECT_TRUE(second.closed());
        }
        first.send(AUDIO_WIRE_FRAME, 0, {1, 2, 3});
        first.send(AUDIO_WIRE_STOP, 8);
        EXPECT_EQ(first.reply(AUDIO_WIRE_STOP, 8), kAtRest) << "a frame outside a session is dropped";
        first.send(AUDIO_WIRE_START_ENCODE, 9, Bytes(AUDIO_WIRE_START_WORDS * 4));
        EXPECT_EQ(first.reply(AUDIO_WIRE_START_ENCODE, 9), Words{uint32_t(-EINVAL)})
            << "mode 0, but the command's is 1";
    }
    for (Bytes header = {};
         header.empty() || load_le16(&header[6]) != (AUDIO_WIRE_STATUS | AUDIO_WIRE_REPLY);) {
        const Station next(own); // until the place is free again
        next.send(AUDIO_WIRE_STATUS, 1);
        header = next.receive(AUDIO_WIRE_HEADER);
        ASSERT_FALSE(header.empty());
    }
}

TEST_F(Server, FaultsEndTheConnectionAndNothingElse)
{
    const long before = count_descriptors();
    const Bytes faults[] = {
        Bytes(AUDIO_WIRE_HEADER, 0),
        Bytes(5000, 0xFF),
        {'T', 'A', 'U', 'D', 1, 0, 4, 0, 0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0},
        {'T', 'A', 'U', 'D', 1, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0},
    };
    for (int round = 0; round < 250; ++round) {
        const Station station(own);
        station.send(faults[round % std::size(faults)]);
        EXPECT_TRUE(station.closed()) << round;
    }
    const Station good(own);
    EXPECT_EQ(good.status(1), kAtRest);
    EXPECT_LE(count_descriptors(), before + 2) << "the good station's two ends";
}

// Its replies fill both ends' buffers, and the server stops waiting after its limit.
TEST_F(Server, AStationThatAsksAndNeverListensIsGivenUp)
{
    const Station deaf(own);
    uint8_t header[AUDIO_WIRE_HEADER];
    write_header({AUDIO_WIRE_STATUS, 0, 0}, header);
    Bytes many;
    for (int i = 0; i < 4096; ++i) many.insert(many.end(), header, header + sizeof header);
    while (::send(deaf.fd.get(), many.data(), many.size(), MSG_NOSIGNAL) > 0) {
    }
    EXPECT_EQ(Station(own).status(1), kAtRest);
}

} // namespace
