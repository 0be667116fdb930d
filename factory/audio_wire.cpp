// Messages between a station and the camera.
#include "factory/audio_wire.hpp"

#include "common/base/bytes.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace zep {

namespace {

constexpr size_t kMagic = sizeof AUDIO_WIRE_MAGIC - 1;
static_assert(kMagic + 2 + 2 + 4 + 4 == AUDIO_WIRE_HEADER);

// What a station may ask, and the lengths of its bodies.
struct Form {
    uint16_t command;
    uint32_t shortest, longest;
};
constexpr uint32_t kStart = AUDIO_WIRE_START_WORDS * 4;
constexpr Form kForms[] = {
    {AUDIO_WIRE_START_ENCODE, kStart, kStart},
    {AUDIO_WIRE_START_DECODE, kStart, kStart},
    {AUDIO_WIRE_STOP, 0, 0},
    {AUDIO_WIRE_FRAME, 1, AUDIO_WIRE_MAX_BODY},
    {AUDIO_WIRE_STATUS, 0, 0},
};

bool well_formed(const WireHeader& header)
{
    for (const Form& form : kForms)
        if (form.command == header.command)
            return header.length >= form.shortest && header.length <= form.longest;
    return false;
}

} // namespace

void write_header(const WireHeader& header, uint8_t (&bytes)[AUDIO_WIRE_HEADER])
{
    memcpy(bytes, AUDIO_WIRE_MAGIC, kMagic);
    store_le16(bytes + 4, AUDIO_WIRE_VERSION);
    store_le16(bytes + 6, header.command);
    store_le32(bytes + 8, header.length);
    store_le32(bytes + 12, header.number);
}

bool WireReceiver::read_header()
{
    if (memcmp(head_, AUDIO_WIRE_MAGIC, kMagic) != 0 || load_le16(head_ + 4) != AUDIO_WIRE_VERSION)
        return false;
    header_ = {load_le16(head_ + 6), load_le32(head_ + 8), load_le32(head_ + 12)};
    if (header_.length > AUDIO_WIRE_MAX_BODY) {
        printf("recv size(%d) is exeed RECV_BUFFER_SIZE(%d)\n", int(header_.length), AUDIO_WIRE_MAX_BODY);
        return false;
    }
    return well_formed(header_);
}

// Copies into `to` until bytes `from` to `from + wanted` of the message are there.
void WireReceiver::fill(std::span<const uint8_t>& piece, uint8_t* to, size_t from, size_t wanted)
{
    const size_t done = have_ - from;
    const size_t taken = std::min(wanted - done, piece.size());
    std::copy_n(piece.data(), taken, to + done);
    piece = piece.subspan(taken);
    have_ += taken;
}

WireReceiver::Result WireReceiver::take(std::span<const uint8_t>& piece)
{
    if (whole_) have_ = 0;
    whole_ = false;
    if (have_ < AUDIO_WIRE_HEADER) {
        fill(piece, head_, 0, AUDIO_WIRE_HEADER);
        if (have_ < AUDIO_WIRE_HEADER) return Result::more;
        if (!read_header()) return Result::fault;
    }
    fill(piece, body_, AUDIO_WIRE_HEADER, header_.length);
    whole_ = have_ == AUDIO_WIRE_HEADER + header_.length;
    return whole_ ? Result::message : Result::more;
}

} // namespace zep
