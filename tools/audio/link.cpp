// The connection to a camera: messages in both directions.
#include "tools/audio/link.hpp"

#include "base/mpp_error.h"
#include "common/base/bytes.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace zaudio {

namespace {

using zep::append_le16, zep::append_le32, zep::load_le16, zep::load_le32;

// A station that stops reading is then noticed by the camera while little of its sound is on the way.
constexpr int kReceiveBuffer = 8 * 1024;
constexpr auto kTryAgain = std::chrono::milliseconds(100);

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what); }

int wait_ms(Clock::time_point until)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return left > 0 ? int(left) : 0;
}

// A connected socket, or -1 with errno.
int connect_to(const addrinfo& address, std::chrono::seconds limit)
{
    const int fd = socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return -1;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
    if (connect(fd, address.ai_addr, address.ai_addrlen) == 0) return fd;
    pollfd wanted = {fd, POLLOUT, 0};
    int error = errno;
    if (error == EINPROGRESS) {
        socklen_t length = sizeof error;
        error = ETIMEDOUT;
        if (poll(&wanted, 1, int(limit.count()) * 1000) > 0)
            getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
    }
    if (error == 0) return fd;
    close(fd);
    errno = error;
    return -1;
}

constexpr char kClosed[] = "the camera has closed the connection";

// After a send or a receive that failed: which of the two notices first that the peer is gone is chance.
std::string lost()
{
    return errno == EPIPE || errno == ECONNRESET ? kClosed : std::string("connection: ") + strerror(errno);
}

struct Name {
    unsigned number;
    const char* text;
};
constexpr Name kModules[] = {{HI_ID_VB, "buffer pools"},    {HI_ID_SYS, "system"},
                             {HI_ID_AI, "audio input"},     {HI_ID_AO, "audio output"},
                             {HI_ID_AENC, "audio encoder"}, {HI_ID_ADEC, "audio decoder"}};
constexpr Name kErrors[] = {{MPP_ERR_DEVICE, "no such device"},
                            {MPP_ERR_CHANNEL, "no such channel"},
                            {MPP_ERR_PARAM, "illegal parameter"},
                            {MPP_ERR_EXISTS, "channel exists already"},
                            {MPP_ERR_MISSING, "channel does not exist"},
                            {MPP_ERR_NULL, "null pointer"},
                            {MPP_ERR_NO_CONFIG, "attributes not set"},
                            {MPP_ERR_NOT_PERM, "not permitted in this state"},
                            {MPP_ERR_NO_MEMORY, "out of memory"},
                            {MPP_ERR_EMPTY, "no frame to be had"},
                            {MPP_ERR_FULL, "no room"},
                            {MPP_ERR_REFUSED, "the driver refused, or is not there"},
                            {MPP_ERR_BUSY, "in use"}};

template<size_t N> std::string name_of(const Name (&names)[N], unsigned number, const char* kind)
{
    for (const Name& name : names)
        if (name.number == number) return name.text;
    return kind + std::to_string(number);
}

} // namespace

std::string result_text(int32_t result)
{
    if (result == -1) return "-1, the camera's console says why";
    const auto code = uint32_t(result);
    if (code >> 24 != 0xA0)
        return std::to_string(result) + (result < 0 ? std::string(", ") + strerror(-result) : "");
    char text[16];
    snprintf(text, sizeof text, "0x%08x, ", code);
    return text + name_of(kModules, code >> 16 & 0xFF, "module ") + ": " +
           name_of(kErrors, code & 0x1FFF, "error ");
}

int32_t Message::word(size_t index) const
{
    return body.size() >= 4 * index + 4 ? int32_t(load_le32(body.data() + 4 * index)) : 0;
}

Link::Link(const std::string& host, const std::string& port, std::chrono::seconds limit,
           std::chrono::seconds wait)
    : limit_(limit)
{
    const auto until = Clock::now() + wait;
    addrinfo hints = {}, *found = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    if (int error = getaddrinfo(host.c_str(), port.c_str(), &hints, &found))
        fail(host + ": " + gai_strerror(error));
    for (;;) {
        for (const addrinfo* a = found; a && fd_ < 0; a = a->ai_next) fd_ = connect_to(*a, limit);
        if (fd_ >= 0 || errno != ECONNREFUSED || Clock::now() >= until) break;
        std::this_thread::sleep_for(kTryAgain);
    }
    const int error = errno;
    freeaddrinfo(found);
    errno = error;
    if (fd_ < 0) fail(host + " port " + port + ": " + strerror(errno));
    const int on = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

Link::~Link() { close(fd_); }

void Link::send(uint16_t command, uint32_t number, const std::vector<uint8_t>& body)
{
    constexpr char kMagic[] = AUDIO_WIRE_MAGIC;
    std::vector<uint8_t> all(kMagic, kMagic + 4);
    append_le16(all, AUDIO_WIRE_VERSION);
    append_le16(all, command);
    append_le32(all, uint32_t(body.size()));
    append_le32(all, number);
    all.insert(all.end(), body.begin(), body.end());
    const auto until = Clock::now() + limit_;
    for (size_t done = 0; done < all.size();) {
        const ssize_t out = ::send(fd_, all.data() + done, all.size() - done, MSG_NOSIGNAL);
        if (out >= 0) {
            done += size_t(out);
            continue;
        }
        pollfd wanted = {fd_, POLLOUT, 0};
        if (errno != EAGAIN && errno != EINTR) fail(lost());
        if (poll(&wanted, 1, wait_ms(until)) == 0) fail("the camera takes nothing any more");
    }
}

// False when the time is over first.
bool Link::fill(size_t wanted, Clock::time_point until)
{
    while (bytes_.size() < wanted) {
        uint8_t piece[8192];
        const ssize_t got = recv(fd_, piece, sizeof piece, 0);
        if (got > 0) {
            bytes_.insert(bytes_.end(), piece, piece + got);
            continue;
        }
        if (got == 0) fail(kClosed);
        if (errno != EAGAIN && errno != EINTR) fail(lost());
        pollfd readable = {fd_, POLLIN, 0};
        if (poll(&readable, 1, wait_ms(until)) == 0) return false;
    }
    return true;
}

std::optional<Message> Link::read_message(Clock::time_point until)
{
    if (!fill(AUDIO_WIRE_HEADER, until)) return {};
    const uint8_t* header = bytes_.data();
    const uint32_t length = load_le32(header + 8);
    if (memcmp(header, AUDIO_WIRE_MAGIC, 4) != 0) fail("this is no test_audio: its answer has another form");
    if (load_le16(header + 4) != AUDIO_WIRE_VERSION) fail("the camera speaks another version");
    if (length > AUDIO_WIRE_MAX_BODY) fail("the camera sends a message that is too long");
    Message message{uint16_t(load_le16(header + 6)), load_le32(header + 12), {}};
    if (!fill(AUDIO_WIRE_HEADER + length, until)) return {};
    const auto body = bytes_.begin() + AUDIO_WIRE_HEADER;
    message.body.assign(body, body + length);
    bytes_.erase(bytes_.begin(), body + length);
    if (message.command == (AUDIO_WIRE_BUSY | AUDIO_WIRE_REPLY))
        fail("another station is connected to the camera");
    if (message.command == (AUDIO_WIRE_FRAME | AUDIO_WIRE_REPLY))
        fail("the camera's session has ended by itself (" + result_text(message.word(0)) + ")");
    return message;
}

std::optional<Message> Link::receive(Clock::time_point until)
{
    if (waiting_.empty()) return read_message(until);
    Message first = std::move(waiting_.front());
    waiting_.erase(waiting_.begin());
    return first;
}

Message Link::ask(uint16_t command, const std::vector<uint8_t>& body)
{
    const uint32_t number = next_number_++;
    send(command, number, body);
    const auto until = Clock::now() + limit_;
    while (auto message = read_message(until)) {
        if (message->command == (command | AUDIO_WIRE_REPLY) && message->number == number) return *message;
        waiting_.push_back(std::move(*message));
    }
    fail("the camera does not answer");
}

void Link::start(bool encode, const int32_t (&words)[AUDIO_WIRE_START_WORDS])
{
    std::vector<uint8_t> body;
    for (int32_t word : words) append_le32(body, uint32_t(word));
    const int32_t result = ask(encode ? AUDIO_WIRE_START_ENCODE : AUDIO_WIRE_START_DECODE, body).word(0);
    if (result == 0) return;
    fail("the camera refuses the session: " + result_text(result));
}

namespace {

Status status_of(const Message& reply)
{
    Status status{reply.word(1) != 0};
    uint32_t* const counts[] = {&status.sent,    &status.received, &status.dropped, &status.damaged,
                                &status.waiting, &status.unheard,  &status.lost};
    for (size_t i = 0; i < std::size(counts); ++i) *counts[i] = uint32_t(reply.word(2 + i));
    return status;
}

} // namespace

Status Link::stop() { return status_of(ask(AUDIO_WIRE_STOP)); }

Status Link::status(Clock::duration* round_trip)
{
    const auto asked = Clock::now();
    const Message reply = ask(AUDIO_WIRE_STATUS);
    if (round_trip) *round_trip = Clock::now() - asked;
    return status_of(reply);
}

} // namespace zaudio
