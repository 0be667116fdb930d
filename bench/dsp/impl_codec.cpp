// Our speech codecs behind the measuring interface.
#include "bench/dsp/impl.hpp"
#include "mpi/audio/g711.h"

namespace {

char stateless; // G.711 has no state; the interface wants an address

void* open_stateless(int) { return &stateless; }
void close_stateless(void*) {}

using Encode711 = void (*)(const int16_t*, uint8_t*, size_t);
using Decode711 = void (*)(const uint8_t*, int16_t*, size_t);

template<Encode711 F> int encode_711(void*, const int16_t* pcm, int points, uint8_t* out)
{
    F(pcm, out, size_t(points));
    return points;
}

template<Decode711 F> int decode_711(void*, const uint8_t* in, int bytes, int16_t* pcm)
{
    F(in, pcm, size_t(bytes));
    return bytes;
}

template<Encode711 E, Decode711 D> constexpr vd_codec g711(const char* kind)
{
    return {
        "zep",         kind,           0, 0, open_stateless, encode_711<E>, close_stateless, open_stateless,
        decode_711<D>, close_stateless};
}

const vd_codec kCodecs[] = {
    g711<G711_EncodeA, G711_DecodeA>("alaw"),
    g711<G711_EncodeU, G711_DecodeU>("ulaw"),
};

} // namespace

std::span<const vd_codec> zep::bench::our_codecs() { return kCodecs; }
