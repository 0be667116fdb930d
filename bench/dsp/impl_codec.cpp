// Our speech codecs behind the measuring interface.
#include "bench/dsp/impl.hpp"
#include "mpi/audio/adpcm.h"
#include "mpi/audio/g711.h"
#include "mpi/audio/g726.h"

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

template<uint32_t kBits, uint32_t kPacking> void* open_726(int)
{
    auto* state = new G726_STATE_S;
    G726_Init(state, kBits, kPacking);
    return state;
}

int encode_726(void* state, const int16_t* pcm, int points, uint8_t* out)
{
    return int(G726_Encode(static_cast<G726_STATE_S*>(state), pcm, size_t(points), out));
}

int decode_726(void* state, const uint8_t* in, int bytes, int16_t* pcm)
{
    return int(G726_Decode(static_cast<G726_STATE_S*>(state), in, size_t(bytes), pcm));
}

void close_726(void* state) { delete static_cast<G726_STATE_S*>(state); }

template<uint32_t kBits, uint32_t kPacking> constexpr vd_codec g726(const char* kind)
{
    return {"zep",
            kind,
            0,
            0,
            open_726<kBits, kPacking>,
            encode_726,
            close_726,
            open_726<kBits, kPacking>,
            decode_726,
            close_726};
}

template<uint32_t kFormat> void* open_adpcm(int)
{
    auto* state = new ADPCM_STATE_S;
    ADPCM_Init(state, kFormat);
    return state;
}

int encode_adpcm(void* state, const int16_t* pcm, int points, uint8_t* out)
{
    return int(ADPCM_Encode(static_cast<ADPCM_STATE_S*>(state), pcm, size_t(points), out));
}

int decode_adpcm(void* state, const uint8_t* in, int bytes, int16_t* pcm)
{
    return int(ADPCM_Decode(static_cast<ADPCM_STATE_S*>(state), in, size_t(bytes), pcm));
}

void close_adpcm(void* state) { delete static_cast<ADPCM_STATE_S*>(state); }

template<uint32_t kFormat> constexpr vd_codec adpcm(const char* kind, int frame)
{
    return {"zep",
            kind,
            0,
            frame,
            open_adpcm<kFormat>,
            encode_adpcm,
            close_adpcm,
            open_adpcm<kFormat>,
            decode_adpcm,
            close_adpcm};
}

const vd_codec kCodecs[] = {
    g711<G711_EncodeA, G711_DecodeA>("alaw"),
    g711<G711_EncodeU, G711_DecodeU>("ulaw"),
    g726<2, G726_PACK_AAL2>("g726-16"),
    g726<3, G726_PACK_AAL2>("g726-24"),
    g726<4, G726_PACK_AAL2>("g726-32"),
    g726<5, G726_PACK_AAL2>("g726-40"),
    g726<2, G726_PACK_RFC3551>("g726-16r"),
    g726<3, G726_PACK_RFC3551>("g726-24r"),
    g726<4, G726_PACK_RFC3551>("g726-32r"),
    g726<5, G726_PACK_RFC3551>("g726-40r"),
    adpcm<ADPCM_DVI4>("dvi4", 0),
    adpcm<ADPCM_IMA_BLOCK>("ima-wav", 505),
};

} // namespace

std::span<const vd_codec> zep::bench::our_codecs() { return kCodecs; }
