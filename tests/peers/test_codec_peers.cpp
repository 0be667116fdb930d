#include "bench/dsp/impl.hpp"
#include "bench/dsp/peers/peers.hpp"
#include "mpi/audio/adpcm.h"
#include "mpi/audio/g711.h"
#include "tests/unit/mpp/codec_signals.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

extern "C" {
#include <inttypes.h>
#include <spandsp.h>
}

using namespace codec_test;

namespace {

const vd_codec& find(std::span<const vd_codec> codecs, const char* name, const std::string& kind)
{
    for (const vd_codec& c : codecs)
        if (!strcmp(c.name, name) && kind == c.kind) return c;
    ADD_FAILURE() << name << " has no " << kind;
    return codecs.front();
}

const vd_codec& ours(const std::string& kind) { return find(zep::bench::our_codecs(), "zep", kind); }
const vd_codec& peer(const char* name, const std::string& kind)
{
    const vd_impl* impl = zep::bench::peers_codec();
    return find({impl->codecs, size_t(impl->ncodecs)}, name, kind);
}

std::vector<uint8_t> encode(const vd_codec& codec, const std::vector<int16_t>& pcm, int frame)
{
    std::vector<uint8_t> octets(pcm.size() * 2 + 4096);
    void* state = codec.enc_open(frame);
    size_t done = 0;
    for (size_t i = 0; i + size_t(frame) <= pcm.size(); i += size_t(frame))
        done += size_t(codec.enc(state, &pcm[i], frame, &octets[done]));
    codec.enc_close(state);
    octets.resize(done);
    return octets;
}

std::vector<int16_t> decode(const vd_codec& codec, const std::vector<uint8_t>& octets, size_t chunk)
{
    std::vector<int16_t> pcm(octets.size() * 8);
    void* state = codec.dec_open(int(chunk));
    size_t done = 0;
    for (size_t i = 0; i + chunk <= octets.size(); i += chunk)
        done += size_t(codec.dec(state, &octets[i], int(chunk), &pcm[done]));
    codec.dec_close(state);
    pcm.resize(done);
    return pcm;
}

} // namespace

TEST(CodecPeers, G711DecodersAgree)
{
    std::vector<uint8_t> all(256);
    for (int i = 0; i < 256; ++i) all[size_t(i)] = uint8_t(i);
    for (const char* kind : {"alaw", "ulaw"})
        for (const char* who : {"spandsp", "ffmpeg"})
            EXPECT_EQ(decode(ours(kind), all, 256), decode(peer(who, kind), all, 256)) << who << " " << kind;
}

// spandsp's tables differ in one pair of values (80 of either law), where they break what the Recommendation
// says of conversions in tandem: only the last bit may change.
TEST(CodecPeers, G711DirectConversionsAgreeButForOnePairOfValues)
{
    for (int octet = 0; octet < 256; ++octet) {
        const int a = ((octet ^ 0x55) & 0x7f) + 1, mu = ~octet & 0x7f;
        EXPECT_EQ(a2u_table[octet] != alaw_to_ulaw(uint8_t(octet)), a == 80) << octet;
        EXPECT_EQ(u2a_table[octet] != ulaw_to_alaw(uint8_t(octet)), mu == 80) << octet;
    }
}

// spandsp's decoder of G.726 wraps where the Recommendation limits; there ours stands at a limit.
TEST(CodecPeers, StreamsAreTheSameAndSoAreSamplesButForTheLimiter)
{
    for (const std::string kind :
         {"g726-16", "g726-16r", "g726-24", "g726-24r", "g726-32", "g726-32r", "g726-40", "g726-40r", "dvi4"})
        for (int s = 0; s < kSignals; ++s) {
            SCOPED_TRACE(kind + ", signal " + std::to_string(s));
            const bool g726 = kind != "dvi4";
            const auto pcm = signal(Waveform(s), 40000);
            const auto codes = encode(ours(kind), pcm, 160);
            ASSERT_EQ(codes, encode(peer("spandsp", kind), pcm, 160));
            const size_t chunk = g726 ? size_t(20 * std::stoi(kind.substr(5)) / 8) : 84;
            const auto mine = decode(ours(kind), codes, chunk),
                       theirs = decode(peer("spandsp", kind), codes, chunk);
            ASSERT_EQ(mine.size(), theirs.size());
            for (size_t i = 0; i < mine.size(); ++i)
                ASSERT_TRUE(mine[i] == theirs[i] || (g726 && (mine[i] == 32764 || mine[i] == -32768))) << i;
        }
}

// ffmpeg multiplies where the recommended practice shifts and adds, which rounds its samples a little
// differently; the form of the blocks, header and order of the codes are the same if both decode alike to
// within that.
TEST(CodecPeers, ImaBlocksAreReadAlikeByAnIndependentDecoder)
{
    const auto pcm = signal(kTilted, 505 * 20);
    const auto blocks = encode(ours("ima-wav"), pcm, 505);
    const auto mine = decode(ours("ima-wav"), blocks, 256),
               theirs = decode(peer("ffmpeg", "ima-wav"), blocks, 256);
    ASSERT_EQ(mine.size(), pcm.size());
    ASSERT_EQ(theirs.size(), pcm.size());
    int64_t difference = 0, power = 0;
    for (size_t i = 0; i < pcm.size(); ++i) {
        difference += int64_t(mine[i] - theirs[i]) * (mine[i] - theirs[i]);
        power += int64_t(pcm[i]) * pcm[i];
    }
    EXPECT_LT(difference * 10000, power); // 40 dB below the signal
}
