// Frames between the configuration daemon and its clients.
#include "common/cconfd_frame.hpp"
#include "common/qrn_tcp.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace zep {

namespace {

constexpr int kTimeUp = -1; // of the stream functions

bool failed(int error)
{
    errno = error;
    return false;
}

} // namespace

int64_t monotonic_ms()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

// 0 when the time is up: to the stream functions that would mean no limit.
int ConfdStream::seconds_left() const
{
    int64_t left = end_ms_ - monotonic_ms();
    return left <= 0 ? 0 : int((left + 999) / 1000);
}

bool ConfdStream::send(const void* data, size_t length) const
{
    int seconds = seconds_left();
    if (seconds == 0) return failed(ETIMEDOUT);
    int out = QRN_SendTCPStream(fd_, data, int(length), seconds);
    return out == int(length) || failed(out == kTimeUp ? ETIMEDOUT : EPIPE);
}

bool ConfdStream::receive(void* data, size_t length) const
{
    if (length == 0) return true;
    int seconds = seconds_left();
    if (seconds == 0) return failed(ETIMEDOUT);
    int got = QRN_RecvTCPStream(fd_, data, int(length), seconds);
    return got == int(length) || failed(got == kTimeUp ? ETIMEDOUT : EPIPE);
}

bool ConfdStream::drain(size_t length) const
{
    char chunk[512];
    while (length > 0) {
        size_t part = std::min(length, sizeof chunk);
        if (!receive(chunk, part)) return false;
        length -= part;
    }
    return true;
}

bool confd_receive(const ConfdStream& stream, ConfdHeader& header)
{
    uint32_t words[2];
    if (!stream.receive(words, sizeof words)) return false;
    header = {.command = words[0], .length = words[1]};
    return header.length <= CCONFD_FRAME_SIZE || failed(EPROTO);
}

bool confd_is_text(const char* text, size_t length)
{
    return std::none_of(text, text + length, [](char c) { return uint8_t(c) < ' ' || c == '\x7f'; });
}

bool ConfdRequest::make(CCONFD_COMMAND what, const char* key, const char* value)
{
    if (!key) return false;
    const size_t key_length = strnlen(key, CCONFD_KEY_SIZE);
    const size_t value_length = value ? strnlen(value, CCONFD_VALUE_SIZE) : 0;
    if (key_length == CCONFD_KEY_SIZE || value_length == CCONFD_VALUE_SIZE) return false;
    if (!confd_is_text(key, key_length) || (value && !confd_is_text(value, value_length))) return false;
    if (key_length == 0 && what != CCONFD_COMMAND_WATCH) return false;

    command = what;
    const uint32_t data_length = uint32_t(key_length + (value ? 1 + value_length : 0));
    const uint32_t header[2] = {command, data_length};
    length = sizeof header + data_length;
    memcpy(frame, header, sizeof header);
    memcpy(frame + sizeof header, key, key_length);
    if (value) {
        frame[sizeof header + key_length] = '\0';
        memcpy(frame + sizeof header + key_length + 1, value, value_length);
    }
    return true;
}

bool confd_receive_reply(const ConfdStream& stream, uint32_t length, ConfdAnswer& answer)
{
    int32_t status;
    if (length < sizeof status) return failed(EPROTO);
    if (!stream.receive(&status, sizeof status)) return false;
    const size_t rest = length - sizeof status;
    answer.result = status == 0 ? 0 : status == CCONFD_NO_KEY ? CCONFD_NO_KEY : CCONFD_REFUSED;
    if (answer.result != 0 || !answer.value) return stream.drain(rest);
    if (rest >= CCONFD_VALUE_SIZE || rest >= answer.room) {
        answer.result = CCONFD_TOO_LONG;
        return stream.drain(rest);
    }
    char value[CCONFD_VALUE_SIZE]; // the caller's stays as it was until the whole value is there
    if (!stream.receive(value, rest)) return false;
    if (!confd_is_text(value, rest)) return failed(EPROTO);
    memcpy(answer.value, value, rest);
    answer.value[rest] = '\0';
    return true;
}

} // namespace zep
