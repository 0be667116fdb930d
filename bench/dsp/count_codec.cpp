// One codec, one direction, a number of 160-sample frames: what bench/dsp/arm_instructions counts in
// emulation.
//   count_codec KIND enc|dec FRAMES
#include "bench/dsp/impl.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kFrame = 160;

int run(const vd_codec& codec, bool encode, int frames)
{
    static int16_t pcm[kFrame], out[kFrame * 4];
    static uint8_t octets[kFrame * 2];
    uint32_t r = 12345;
    int32_t tilt = 0, sum = 0;
    for (int16_t& sample : pcm) {
        r = r * 1664525u + 1013904223u;
        tilt += (int16_t(r >> 16) >> 3) - (tilt >> 3);
        sample = int16_t(tilt);
    }
    void* encoder = codec.enc_open(kFrame);
    void* decoder = codec.dec_open(kFrame);
    const int bytes = codec.enc(encoder, pcm, kFrame, octets);
    for (int i = 0; i < frames; ++i)
        sum += encode ? codec.enc(encoder, pcm, kFrame, octets) : codec.dec(decoder, octets, bytes, out);
    codec.enc_close(encoder);
    codec.dec_close(decoder);
    return sum;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) return 2;
    for (const vd_codec& codec : zep::bench::our_codecs())
        if (!strcmp(codec.kind, argv[1])) return run(codec, !strcmp(argv[2], "enc"), atoi(argv[3])) < 0;
    fprintf(stderr, "no codec %s\n", argv[1]);
    return 2;
}
