// The server of the audio loop-back test.
#include "factory/audio_server.hpp"

#include "base/mpp_error.h"
#include "common/base/bytes.hpp"
#include "common/base/monotonic.hpp"
#include "common/qrn_socket.h"
#include "common/qrn_tcp.h"
#include "factory/start_audio.h"
#include "mpi/src/mpi_aenc.h"
#include "mpi/src/mpi_ai.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace zep {

namespace {

constexpr char kTestSource[] = "/tmp/AUDIO.G711";
constexpr size_t kPiece = 4096;          // bytes taken from a station at a time
constexpr int kLastWords = 64;           // pieces that a station may have left when the next one comes
constexpr uint32_t kLongestFrame = 8192; // of the built-in codecs
constexpr int kSendBuffer = 64 * 1024;   // seconds of sound, not minutes: who lags more is not listening

void set_option(int fd, int level, int option, int value)
{
    setsockopt(fd, level, option, &value, sizeof value);
}

bool readable(int fd)
{
    pollfd wanted = {fd, POLLIN, 0};
    return poll(&wanted, 1, 0) > 0;
}

// A station that is gone without a word is noticed within half a minute.
void prepare(int fd)
{
    QRN_SetNonBlocking(fd);
    set_option(fd, SOL_SOCKET, SO_SNDBUF, kSendBuffer);
    set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(fd, IPPROTO_TCP, TCP_KEEPIDLE, 10);
    set_option(fd, IPPROTO_TCP, TCP_KEEPINTVL, 5);
    set_option(fd, IPPROTO_TCP, TCP_KEEPCNT, 4);
}

// G.711 is a byte a point, so the file's frames are as long as the device's.
AudioPlayer::Source test_source(bool encode, int32_t type, int32_t rate)
{
    const bool fits = !encode && (type == PT_G711A || type == PT_G711U);
    return {fits ? kTestSource : nullptr, AUDIO_PATH_DECODE_POINTS,
            uint32_t(AUDIO_PATH_DECODE_POINTS * 1000 / rate)};
}

} // namespace

void AudioServer::run()
{
    while (turn()) {
    }
    drop_station();
}

bool AudioServer::turn()
{
    enum { kEnd, kListener, kStation, kInput, kCount };
    pollfd wanted[kCount] = {
        {end_, POLLIN, 0}, {listener_, POLLIN, 0}, {station_.get(), POLLIN, 0}, {input_, POLLIN, 0}};
    fflush(stdout);
    if (poll(wanted, kCount, wait_ms()) < 0 && errno != EINTR) return false;
    if (wanted[kEnd].revents) return false;
    if (wanted[kStation].revents) receive();
    if (input_ >= 0 && wanted[kInput].revents) input_event(wanted[kInput].revents);
    if (wanted[kListener].revents) accept_station();
    check_patience();
    return true;
}

// Until the station's time is over; -1 without a limit.
int AudioServer::wait_ms() const
{
    if (!station_ || (session_ != Session::none && !receiver_.within())) return -1;
    const int64_t limit_s = receiver_.within() ? AUDIO_WIRE_MESSAGE_S : AUDIO_WIRE_IDLE_S;
    const int64_t left = since_ms_ + limit_s * 1000 - monotonic_ms();
    return left > 0 ? int(left) : 0;
}

void AudioServer::check_patience()
{
    if (station_ && wait_ms() == 0) drop_station();
}

bool AudioServer::ending() const { return readable(end_); }

void AudioServer::accept_station()
{
    Fd coming(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
    if (!coming) return;
    prepare(coming.get());
    // The one before may have said its last words and closed.
    for (int i = 0; station_ && i < kLastWords && readable(station_.get()); ++i) receive();
    if (!station_) {
        station_ = static_cast<Fd&&>(coming);
        receiver_.reset();
        since_ms_ = monotonic_ms();
        return;
    }
    uint8_t refusal[AUDIO_WIRE_HEADER + 4];
    uint8_t header[AUDIO_WIRE_HEADER];
    write_header({AUDIO_WIRE_BUSY | AUDIO_WIRE_REPLY, 4, 0}, header);
    memcpy(refusal, header, sizeof header);
    store_le32(refusal + sizeof header, uint32_t(-EBUSY));
    // A new socket has room for it; one that has not is no reason to wait.
    [[maybe_unused]] ssize_t n = ::send(coming.get(), refusal, sizeof refusal, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void AudioServer::drop_station()
{
    stop_session();
    station_.reset();
}

void AudioServer::receive()
{
    uint8_t bytes[kPiece];
    const ssize_t got = recv(station_.get(), bytes, sizeof bytes, 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (got <= 0) return drop_station();
    std::span<const uint8_t> piece(bytes, size_t(got));
    // A piece may hold a hundred starts: the end does not wait for all of them.
    while (station_ && !piece.empty() && !ending()) {
        if (!receiver_.within()) since_ms_ = monotonic_ms();
        switch (receiver_.take(piece)) {
        case WireReceiver::Result::more:
            return;
        case WireReceiver::Result::message:
            since_ms_ = monotonic_ms();
            handle();
            break;
        case WireReceiver::Result::fault:
            return drop_station();
        }
    }
}

void AudioServer::handle()
{
    const WireHeader request = receiver_.header();
    switch (request.command) {
    case AUDIO_WIRE_START_ENCODE:
        puts("START ENCODE AUDIO");
        return start(true);
    case AUDIO_WIRE_START_DECODE:
        puts("START DECODE AUDIO");
        return start(false);
    case AUDIO_WIRE_STOP:
        puts("STOP AUDIO");
        stop_session();
        break;
    case AUDIO_WIRE_FRAME:
        if (session_ != Session::none) player_.push(receiver_.body());
        return;
    default:
        break;
    }
    if (!reply_status(request)) drop_station();
}

void AudioServer::start(bool encode)
{
    const WireHeader request = receiver_.header();
    int32_t word[AUDIO_WIRE_START_WORDS];
    for (int i = 0; i < AUDIO_WIRE_START_WORDS; ++i)
        word[i] = int32_t(load_le32(receiver_.body().data() + i * 4));
    stop_session();
    int32_t result = -EINVAL;
    if (word[0] == int32_t(encode)) {
        path_ = true;
        result = StartAudio(word[0], word[1], word[2], word[3], word[4], word[5], word[6]);
    }
    if (result == 0) {
        session_ = encode ? Session::encode : Session::decode;
        sent_ = 0;
        input_ = encode ? HI_MPI_AI_GetFd(AUDIO_PATH_DEVICE, AUDIO_PATH_CHANNEL) : -1;
        const bool heard = !encode || input_ >= 0;
        if (!heard || !player_.start(test_source(encode, word[1], word[2]))) {
            stop_session();
            result = heard ? -EAGAIN : -EIO;
        }
    }
    // The time that the path took is not the station's.
    since_ms_ = monotonic_ms();
    const uint32_t body = uint32_t(result > 0 ? -result : result);
    if (!reply(request, &body, 1)) drop_station();
}

void AudioServer::stop_session()
{
    if (!path_) return;
    player_.stop();
    StopAudio();
    path_ = false;
    session_ = Session::none;
    input_ = -1;
}

void AudioServer::input_event(short events)
{
    // Without a frame behind it the event would come again at once, for ever.
    if (!(events & POLLIN)) return session_failed(-EIO);
    if (!send_encoded()) drop_station();
}

// Sends what the encoder has ready. False when the station does not take it.
bool AudioServer::send_encoded()
{
    AENC_STREAM_HEADER_S stream = {};
    const int32_t code = HI_MPI_AENC_GetStream(AUDIO_PATH_CHANNEL, &stream, 0);
    if (code == MPP_ERROR(HI_ID_AENC, MPP_ERR_EMPTY)) return true;
    if (code != 0) {
        session_failed(code);
        return true;
    }
    uint8_t message[AUDIO_WIRE_HEADER + kLongestFrame];
    uint8_t header[AUDIO_WIRE_HEADER];
    const bool fits = stream.u32Len <= kLongestFrame;
    if (fits) {
        write_header({AUDIO_WIRE_FRAME, stream.u32Len, sent_++}, header);
        memcpy(message, header, sizeof header);
        memcpy(message + sizeof header, stream.pu8Data, stream.u32Len);
    }
    const uint32_t length = stream.u32Len;
    HI_MPI_AENC_ReleaseStream(AUDIO_PATH_CHANNEL, &stream);
    return !fits || send(message, sizeof header + length);
}

void AudioServer::session_failed(int32_t result)
{
    printf("test_audio: the audio input ended with %#x\n", unsigned(result));
    stop_session();
    const uint32_t body = uint32_t(result > 0 ? -result : result);
    if (!reply({AUDIO_WIRE_FRAME, 0, sent_}, &body, 1)) drop_station();
}

bool AudioServer::reply_status(const WireHeader& request)
{
    const bool running = session_ != Session::none;
    const AudioPlayer::Counts counts = player_.counts();
    const uint32_t words[AUDIO_WIRE_STATUS_WORDS] = {
        0, running, sent_, counts.received, counts.dropped, counts.damaged, counts.waiting};
    return reply(request, words, AUDIO_WIRE_STATUS_WORDS);
}

bool AudioServer::reply(const WireHeader& request, const uint32_t* words, size_t count)
{
    uint8_t message[AUDIO_WIRE_HEADER + AUDIO_WIRE_STATUS_WORDS * 4];
    uint8_t header[AUDIO_WIRE_HEADER];
    write_header({uint16_t(request.command | AUDIO_WIRE_REPLY), uint32_t(count * 4), request.number}, header);
    memcpy(message, header, sizeof header);
    for (size_t i = 0; i < count; ++i) store_le32(message + sizeof header + i * 4, words[i]);
    return send(message, sizeof header + count * 4);
}

bool AudioServer::send(const void* bytes, size_t length)
{
    return QRN_SendTCPStream(station_.get(), bytes, int(length), AUDIO_WIRE_SEND_S) == int(length);
}

} // namespace zep
