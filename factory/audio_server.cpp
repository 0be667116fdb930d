// The server of the audio loop-back test.
#include "factory/audio_server.hpp"

#include "base/mpp_error.h"
#include "common/base/bytes.hpp"
#include "common/base/monotonic.hpp"
#include "common/qrn_socket.h"
#include "common/qrn_tcp.h"
#include "factory/start_audio.h"
#include "mpi/audio/audio_voice_adp.h"
#include "mpi/src/mpi_aenc.h"
#include "mpi/src/mpi_ai.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace zep {

namespace {

constexpr char kTestSource[] = "/tmp/AUDIO.G711";
constexpr size_t kPiece = 4096; // bytes taken from a station at a time
constexpr int kLastPieces = 64; // read of a station, at most, before the next one is refused
constexpr uint32_t kLongestEncoded = AUDIO_ADP_MAX_LPCM; // the longest of the built-in codecs
constexpr int kSendBuffer = 64 * 1024;                 // seconds of sound at most; behind it the input waits
constexpr int64_t kNever = INT64_MAX;

void set_option(int fd, int level, int option, int value)
{
    setsockopt(fd, level, option, &value, sizeof value);
}

bool ready(int fd, short event)
{
    pollfd wanted = {fd, event, 0};
    return poll(&wanted, 1, 0) > 0;
}

// Bytes for which the other end has no room. Those on their way are not among them: their acknowledgement may
// come late without a fault. Kernels and emulators that cannot tell the two apart count both.
uint32_t untaken(int fd)
{
    int bytes = 0;
    bool counted = ioctl(fd, SIOCOUTQNSD, &bytes) == 0 || ioctl(fd, SIOCOUTQ, &bytes) == 0;
    return counted ? uint32_t(bytes) : 0;
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

// What may be played. A message of ADPCM is one frame, of the device's points at most: where one frame ends
// and the next begins cannot be seen in the bytes. G.711 is a byte a point, so the file's frames are the
// device's.
AudioPlayer::Source source_of(bool encode, int32_t type, int32_t rate)
{
    constexpr size_t kAdpcmHeader = 4;
    const size_t points = encode ? AUDIO_PATH_ENCODE_POINTS : AUDIO_PATH_DECODE_POINTS;
    const bool file = !encode && (type == PT_G711A || type == PT_G711U);
    const size_t longest = type == PT_ADPCM ? kAdpcmHeader + points / 2 : size_t(AUDIO_WIRE_MAX_BODY);
    return {longest, file ? kTestSource : nullptr, AUDIO_PATH_DECODE_POINTS,
            uint32_t(AUDIO_PATH_DECODE_POINTS * 1000 / rate)};
}

} // namespace

void AudioServer::run()
{
    while (turn()) {
    }
    drop_station();
}

// A station that lags is not read, nor is the input taken for it: what it has not taken keeps to the send
// buffer, and the input's driver counts on.
bool AudioServer::turn()
{
    enum { kEnd, kListener, kStation, kInput, kRefused, kCount = kRefused + kMaxRefused };
    const bool room = station_ && ready(station_.get(), POLLOUT);
    pollfd wanted[kCount] = {{end_, POLLIN, 0},
                             {listener_, POLLIN, 0},
                             {station_.get(), short(room ? POLLIN : POLLOUT), 0},
                             {room ? input_ : -1, POLLIN, 0}};
    for (size_t i = 0; i < kMaxRefused; ++i) wanted[kRefused + i] = {refused_[i].fd.get(), POLLIN, 0};
    fflush(stdout);
    if (poll(wanted, kCount, wait_ms()) < 0) return errno == EINTR;
    if (wanted[kEnd].revents) return false;
    if (station_) note_taken();
    if (wanted[kStation].revents & ~POLLOUT) receive();
    if (input_ >= 0 && wanted[kInput].revents) input_event(wanted[kInput].revents);
    for (size_t i = 0; i < kMaxRefused; ++i) {
        uint8_t unread[kPiece];
        if (wanted[kRefused + i].revents && recv(refused_[i].fd.get(), unread, sizeof unread, 0) <= 0)
            refused_[i].fd.reset();
    }
    if (wanted[kListener].revents) accept_station();
    enforce_limits();
    return true;
}

// When the first of the station's limits is reached.
int64_t AudioServer::station_due_ms() const
{
    if (!station_) return kNever;
    int64_t due_ms = kNever;
    if (receiver_.within())
        due_ms = since_ms_ + AUDIO_WIRE_MESSAGE_S * 1000;
    else if (session_ == Session::none)
        due_ms = since_ms_ + AUDIO_WIRE_IDLE_S * 1000;
    if (taken_bytes_ < sent_bytes_) due_ms = std::min<int64_t>(due_ms, taken_ms_ + AUDIO_WIRE_SEND_S * 1000);
    return due_ms;
}

// Until the first limit of all; -1 without one.
int AudioServer::wait_ms() const
{
    int64_t due_ms = station_due_ms();
    for (const Refused& one : refused_)
        if (one.fd) due_ms = std::min(due_ms, one.until_ms);
    if (due_ms == kNever) return -1;
    const int64_t left = due_ms - monotonic_ms();
    return left > 0 ? int(left) : 0;
}

void AudioServer::enforce_limits()
{
    if (station_) note_taken();
    const int64_t now = monotonic_ms();
    if (station_due_ms() <= now) drop_station();
    for (Refused& one : refused_)
        if (one.fd && one.until_ms <= now) one.fd.reset();
}

// How far the station has come in what it was sent.
void AudioServer::note_taken()
{
    const uint64_t taken = sent_bytes_ - std::min<uint64_t>(untaken(station_.get()), sent_bytes_);
    const int64_t now = monotonic_ms();
    if (taken != taken_bytes_) active_ms_ = now;
    if (taken != taken_bytes_ || taken == sent_bytes_) taken_ms_ = now;
    taken_bytes_ = taken;
}

bool AudioServer::ending() const { return ready(end_, POLLIN); }

void AudioServer::accept_station()
{
    Fd coming(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
    if (!coming) return;
    prepare(coming.get());
    // The one before may have sent its last message and closed.
    for (int i = 0; station_ && i < kLastPieces && ready(station_.get(), POLLIN); ++i) receive();
    if (silent_session()) end_silent_session();
    if (station_) return refuse_station(static_cast<Fd&&>(coming));
    station_ = static_cast<Fd&&>(coming);
    receiver_.reset();
    since_ms_ = active_ms_ = taken_ms_ = monotonic_ms();
    sent_bytes_ = taken_bytes_ = 0;
}

bool AudioServer::silent_session() const
{
    return station_ && session_ != Session::none && monotonic_ms() - active_ms_ >= AUDIO_WIRE_IDLE_S * 1000;
}

void AudioServer::end_silent_session()
{
    fprintf(stderr, "test_audio: a session was silent for %d s and is ended for another station\n",
            AUDIO_WIRE_IDLE_S);
    stop_session();
    session_ended(-ETIMEDOUT);
    station_.reset();
}

void AudioServer::refuse_station(Fd coming)
{
    uint8_t refusal[AUDIO_WIRE_HEADER + 4];
    uint8_t header[AUDIO_WIRE_HEADER];
    write_header({AUDIO_WIRE_BUSY | AUDIO_WIRE_REPLY, 4, 0}, header);
    memcpy(refusal, header, sizeof header);
    store_le32(refusal + sizeof header, uint32_t(-EBUSY));
    // A new socket has room for it; one that has not is no reason to wait.
    [[maybe_unused]] ssize_t n = ::send(coming.get(), refusal, sizeof refusal, MSG_NOSIGNAL | MSG_DONTWAIT);
    shutdown(coming.get(), SHUT_WR);
    Refused* place = refused_; // a free one, else the oldest
    for (Refused& one : refused_)
        if (place->fd && (!one.fd || one.until_ms < place->until_ms)) place = &one;
    place->fd = static_cast<Fd&&>(coming);
    place->until_ms = monotonic_ms() + AUDIO_WIRE_SEND_S * 1000;
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
    active_ms_ = monotonic_ms();
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
        rate_ = uint32_t(word[2]);
        sent_ = lost_ = 0;
        input_ = encode ? HI_MPI_AI_GetFd(AUDIO_PATH_DEVICE, AUDIO_PATH_CHANNEL) : -1;
        const bool heard = !encode || input_ >= 0;
        if (!heard || !player_.start(source_of(encode, word[1], word[2]))) {
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
    count_lost(stream.u64TimeStamp);
    uint8_t message[AUDIO_WIRE_HEADER + kLongestEncoded];
    uint8_t header[AUDIO_WIRE_HEADER];
    const bool fits = stream.u32Len <= kLongestEncoded;
    if (fits) {
        write_header({AUDIO_WIRE_FRAME, stream.u32Len, lost_ + sent_++}, header);
        memcpy(message, header, sizeof header);
        memcpy(message + sizeof header, stream.pu8Data, stream.u32Len);
    }
    const uint32_t length = stream.u32Len;
    HI_MPI_AENC_ReleaseStream(AUDIO_PATH_CHANNEL, &stream);
    return !fits || send(message, sizeof header + length);
}

// Frames carry the time of their first sample. A time that goes back, or by more than an hour, has been set.
void AudioServer::count_lost(uint64_t stamp_us)
{
    constexpr uint64_t kHourUs = 3'600'000'000, kFrame = uint64_t(AUDIO_PATH_ENCODE_POINTS) * 1'000'000;
    const uint64_t gap_us = stamp_us - stamp_us_;
    stamp_us_ = stamp_us;
    if (sent_ == 0 || gap_us > kHourUs) return;
    const uint64_t frames = (gap_us * rate_ + kFrame / 2) / kFrame;
    if (frames > 1) lost_ += uint32_t(frames - 1);
}

bool AudioServer::session_ended(int32_t result)
{
    const uint32_t body = uint32_t(result > 0 ? -result : result);
    return reply({AUDIO_WIRE_FRAME, 0, lost_ + sent_}, &body, 1);
}

void AudioServer::session_failed(int32_t result)
{
    printf("test_audio: the audio input ended with %#x\n", unsigned(result));
    stop_session();
    if (!session_ended(result)) drop_station();
}

bool AudioServer::reply_status(const WireHeader& request)
{
    const bool running = session_ != Session::none;
    const AudioPlayer::Counts counts = player_.counts();
    const uint32_t words[AUDIO_WIRE_STATUS_WORDS] = {
        0,
        running,
        sent_,
        counts.received,
        counts.dropped,
        counts.damaged,
        counts.waiting,
        counts.unheard,
        lost_,
    };
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
    note_taken();
    if (QRN_SendTCPStream(station_.get(), bytes, int(length), AUDIO_WIRE_SEND_S) != int(length)) return false;
    sent_bytes_ += length;
    return true;
}

} // namespace zep
