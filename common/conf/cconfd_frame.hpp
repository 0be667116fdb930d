// Frames between the configuration daemon and its clients, with a time by which they must be through.
#pragma once

#include "common/cconfd.h"

#include <cstddef>

namespace zep {

class ConfdStream {
public:
    // `end_ms`: monotonic time at which transfers give up.
    ConfdStream(int fd, int64_t end_ms) : fd_(fd), end_ms_(end_ms) {}

    // False with ETIMEDOUT, EPIPE when the peer is gone.
    bool send(const void* data, size_t length) const;
    bool receive(void* data, size_t length) const;
    // Receives and throws away.
    bool drain(size_t length) const;

private:
    [[nodiscard]] bool wait(short event) const;

    int fd_;
    int64_t end_ms_;
};

struct ConfdHeader {
    uint32_t command;
    uint32_t length;
};

// False with errno; EPROTO for a length that no frame has.
bool confd_receive(const ConfdStream& stream, ConfdHeader& header);

// What a key or value consists of: no control characters, no terminator.
bool confd_is_text(const char* text, size_t length);

struct ConfdRequest {
    uint32_t command;
    size_t length; // of the frame
    char frame[sizeof(ConfdHeader) + CCONFD_KEY_SIZE + CCONFD_VALUE_SIZE];

    // False for an invalid key or value. The value is null for requests without one.
    bool make(CCONFD_COMMAND what, const char* key, const char* value = nullptr);
};

// The answer to a request: its result and, for a get, where the value goes.
struct ConfdAnswer {
    char* value = nullptr;
    size_t room = 0;
    int32_t result = 0;
};

// Receives a reply's data. False with errno.
bool confd_receive_reply(const ConfdStream& stream, uint32_t length, ConfdAnswer& answer);

} // namespace zep
