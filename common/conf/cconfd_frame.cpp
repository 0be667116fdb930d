// Frames between the configuration daemon and its clients.
#include "common/conf/cconfd_frame.hpp"
#include "common/base/monotonic.hpp"
#include "common/qrn_tcp.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/ioctl.h>

namespace zep {

namespace {

constexpr int kTimeUp = -1; // of the stream functions
constexpr int kAtOnce = 1;  // their limit, seconds, where nothing is waited for
constexpr int64_t kLongestPoll = 1'000'000;

bool failed(int error)
{
    errno = error;
    return false;
}

} // namespace

// The stream functions measure their limit with a clock that may be set meanwhile. So they are called for
// what goes through at once, and all waiting is done here.
bool ConfdStream::wait(short event) const
{
    for (;;) {
        const int64_t left = end_ms_ - monotonic_ms();
        if (left <= 0) return failed(ETIMEDOUT);
        pollfd ready = {fd_, event, 0};
        if (poll(&ready, 1, int(std::min(left, kLongestPoll))) > 0) return true;
    }
}

bool ConfdStream::send(const void* data, size_t length) const
{
    if (!wait(POLLOUT)) return false;
    int out = QRN_SendTCPStream(fd_, data, int(length), kAtOnce);
    return out == int(length) || failed(out == kTimeUp ? ETIMEDOUT : EPIPE);
}

bool ConfdStream::receive(void* data, size_t length) const
{
    for (size_t done = 0; done < length;) {
        if (!wait(POLLIN)) return false;
        int there = 0;
        if (ioctl(fd_, FIONREAD, &there) < 0) return failed(EPIPE);
        // At least one byte is asked for, so that the end of the stream is seen.
        const int part = int(std::clamp<size_t>(size_t(std::max(there, 0)), 1, length - done));
        if (QRN_RecvTCPStream(fd_, static_cast<char*>(data) + done, part, kAtOnce) != part)
            return failed(EPIPE);
        done += size_t(part);
    }
    return true;
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
    char value[CCONFD_VALUE_SIZE]; // the caller's is unchanged until the whole value has arrived
    if (!stream.receive(value, rest)) return false;
    if (!confd_is_text(value, rest)) return failed(EPROTO);
    memcpy(answer.value, value, rest);
    answer.value[rest] = '\0';
    return true;
}

} // namespace zep
