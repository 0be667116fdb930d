// G.726: frames of samples and packed codes.
#include "mpi/audio/g726.h"

#include "mpi/audio/codec/g726_coder.hpp"

namespace {

using zep::g726::Coder;

// Codes to octets and back, least significant or most significant bits first.
template<int kBits> class Packer {
public:
    Packer(uint8_t* out, bool msb_first) : out_(out), msb_first_(msb_first) {}
    void put(uint32_t code)
    {
        held_ = msb_first_ ? held_ << kBits | code : held_ | code << count_;
        count_ += kBits;
        if (count_ < 8) return;
        count_ -= 8;
        *out_++ = uint8_t(msb_first_ ? held_ >> count_ : held_);
        if (!msb_first_) held_ >>= 8;
    }

private:
    uint8_t* out_;
    const bool msb_first_;
    uint32_t held_ = 0;
    int count_ = 0;
};

template<int kBits> class Unpacker {
public:
    Unpacker(const uint8_t* in, bool msb_first) : in_(in), msb_first_(msb_first) {}
    uint32_t get()
    {
        if (count_ < kBits) {
            held_ = msb_first_ ? held_ << 8 | *in_++ : held_ | uint32_t(*in_++) << count_;
            count_ += 8;
        }
        count_ -= kBits;
        constexpr uint32_t kMask = (1u << kBits) - 1;
        if (msb_first_) return held_ >> count_ & kMask;
        const uint32_t code = held_ & kMask;
        held_ >>= kBits;
        return code;
    }

private:
    const uint8_t* in_;
    const bool msb_first_;
    uint32_t held_ = 0;
    int count_ = 0;
};

template<int kBits> void encode(G726_STATE_S* state, const int16_t* pcm, size_t points, uint8_t* octets)
{
    Coder<kBits> coder(*state);
    Packer<kBits> packer(octets, state->u8Packing == G726_PACK_AAL2);
    for (size_t i = 0; i < points; ++i) packer.put(coder.encode(pcm[i] >> 2));
    coder.save(*state);
}

template<int kBits> void decode(G726_STATE_S* state, const uint8_t* octets, size_t points, int16_t* pcm)
{
    Coder<kBits> coder(*state);
    Unpacker<kBits> unpacker(octets, state->u8Packing == G726_PACK_AAL2);
    for (size_t i = 0; i < points; ++i) pcm[i] = int16_t(coder.decode(unpacker.get()) * 4);
    coder.save(*state);
}

using EncodeFn = void (*)(G726_STATE_S*, const int16_t*, size_t, uint8_t*);
using DecodeFn = void (*)(G726_STATE_S*, const uint8_t*, size_t, int16_t*);

// By bits - 2.
constexpr EncodeFn kEncode[4] = {encode<2>, encode<3>, encode<4>, encode<5>};
constexpr DecodeFn kDecode[4] = {decode<2>, decode<3>, decode<4>, decode<5>};
constexpr uint8_t kGroup[4] = {1, 3, 1, 5}; // octets of the smallest number of whole codes

} // namespace

int G726_Init(G726_STATE_S* state, uint32_t bits, uint32_t packing)
{
    if (bits < 2 || bits > 5 || packing > G726_PACK_AAL2) return -1;
    *state = G726_STATE_S{};
    state->s32Yl = 34816;
    state->s16Yu = 544;
    for (int16_t& word : state->as16Sr) word = 32;
    for (int16_t& word : state->as16Dq) word = 32;
    state->u8Bits = uint8_t(bits);
    state->u8Packing = uint8_t(packing);
    return 0;
}

size_t G726_Encode(G726_STATE_S* state, const int16_t* pcm, size_t points, uint8_t* octets)
{
    const size_t bits = state->u8Bits;
    if (points * bits % 8 != 0) return 0;
    kEncode[bits - 2](state, pcm, points, octets);
    return points * bits / 8;
}

size_t G726_Decode(G726_STATE_S* state, const uint8_t* octets, size_t bytes, int16_t* pcm)
{
    const size_t bits = state->u8Bits;
    const size_t points = bytes / kGroup[bits - 2] * kGroup[bits - 2] * 8 / bits;
    kDecode[bits - 2](state, octets, points, pcm);
    return points;
}
