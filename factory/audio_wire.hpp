// The messages of audio_wire.h, to bytes and from bytes.
#pragma once

#include "factory/audio_wire.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace zep {

struct WireHeader {
    uint16_t command = 0;
    uint32_t length = 0; // of the body
    uint32_t number = 0;
};

void write_header(const WireHeader& header, uint8_t (&bytes)[AUDIO_WIRE_HEADER]);

// Puts together what a station sends, from pieces of any size. Holds one message; never more than
// AUDIO_WIRE_MAX_BODY of it.
class WireReceiver {
public:
    enum class Result {
        more,    // all of the piece is taken, the message is not whole yet
        message, // a message is whole; the piece may hold more behind it
        fault    // no station sends this: nothing more is to be taken
    };

    // Takes from the front of the piece what belongs to the current message. After a message the next call
    // begins the next one.
    Result take(std::span<const uint8_t>& piece);

    [[nodiscard]] const WireHeader& header() const { return header_; }
    [[nodiscard]] std::span<const uint8_t> body() const { return {body_, header_.length}; }
    // Whether a message has begun and is not whole.
    [[nodiscard]] bool within() const { return !whole_ && have_ > 0; }
    void reset()
    {
        whole_ = false;
        have_ = 0;
    }

private:
    [[nodiscard]] bool read_header();
    void fill(std::span<const uint8_t>& piece, uint8_t* to, size_t from, size_t wanted);

    bool whole_ = false;
    size_t have_ = 0; // bytes of header and body
    WireHeader header_ = {};
    uint8_t head_[AUDIO_WIRE_HEADER] = {};
    uint8_t body_[AUDIO_WIRE_MAX_BODY] = {};
};

} // namespace zep
