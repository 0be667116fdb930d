// G.726: frames of samples and packed codes.
#include "mpi/audio/g726.h"

#include "mpi/audio/g726_coder.hpp"

namespace {

using zep::g726::Coder;

// Codes to octets and back, least significant or most significant bits first.
template<int kBits, bool kMsbFirst> class Packer {
public:
    explicit Packer(uint8_t* out) : out_(out) {}
    void put(uint32_t code)
    {
        held_ = kMsbFirst ? held_ << kBits | code : held_ | code << count_;
        count_ += kBits;
        if (count_ < 8) return;
        count_ -= 8;
        *out_++ = uint8_t(kMsbFirst ? held_ >> count_ : held_);
        if (!kMsbFirst) held_ >>= 8;
    }

private:
    uint8_t* out_;
    uint32_t held_ = 0;
    int count_ = 0;
};

template<int kBits, bool kMsbFirst> class Unpacker {
public:
    explicit Unpacker(const uint8_t* in) : in_(in) {}
    uint32_t get()
    {
        if (count_ < kBits) {
            held_ = kMsbFirst ? held_ << 8 | *in_++ : held_ | uint32_t(*in_++) << count_;
            count_ += 8;
        }
        count_ -= kBits;
        constexpr uint32_t kMask = (1u << kBits) - 1;
        if (kMsbFirst) return held_ >> count_ & kMask;
        const uint32_t code = held_ & kMask;
        held_ >>= kBits;
        return code;
    }

private:
    const uint8_t* in_;
    uint32_t held_ = 0;
    int count_ = 0;
};

template<int kBits, bool kMsbFirst>
void encode(G726_STATE_S* state, const int16_t* pcm, size_t points, uint8_t* octets)
{
    Coder<kBits> coder(*state);
    Packer<kBits, kMsbFirst> packer(octets);
    for (size_t i = 0; i < points; ++i) packer.put(coder.encode(pcm[i] >> 2));
    coder.save(*state);
}

template<int kBits, bool kMsbFirst>
void decode(G726_STATE_S* state, const uint8_t* octets, size_t points, int16_t* pcm)
{
    Coder<kBits> coder(*state);
    Unpacker<kBits, kMsbFirst> unpacker(octets);
    for (size_t i = 0; i < points; ++i) pcm[i] = int16_t(coder.decode(unpacker.get()) * 4);
    coder.save(*state);
}

using EncodeFn = void (*)(G726_STATE_S*, const int16_t*, size_t, uint8_t*);
using DecodeFn = void (*)(G726_STATE_S*, const uint8_t*, size_t, int16_t*);

// By bits - 2 and packing.
constexpr EncodeFn kEncode[4][2] = {{encode<2, false>, encode<2, true>},
                                    {encode<3, false>, encode<3, true>},
                                    {encode<4, false>, encode<4, true>},
                                    {encode<5, false>, encode<5, true>}};
constexpr DecodeFn kDecode[4][2] = {{decode<2, false>, decode<2, true>},
                                    {decode<3, false>, decode<3, true>},
                                    {decode<4, false>, decode<4, true>},
                                    {decode<5, false>, decode<5, true>}};
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
    kEncode[bits - 2][state->u8Packing](state, pcm, points, octets);
    return points * bits / 8;
}

size_t G726_Decode(G726_STATE_S* state, const uint8_t* octets, size_t bytes, int16_t* pcm)
{
    const size_t bits = state->u8Bits;
    const size_t points = bytes / kGroup[bits - 2] * kGroup[bits - 2] * 8 / bits;
    kDecode[bits - 2][state->u8Packing](state, octets, points, pcm);
    return points;
}
