// Decoder channels: what is sent to them and what reaches the channels bound to them.
#include "tests/unit/mpp/codec_channels.hpp"
#include "tests/unit/mpp/fake_input.hpp"

#include <thread>

using namespace codec_test;

namespace {

class Adec : public Channels {
protected:
    static int32_t send(int32_t channel, std::vector<uint8_t> bytes, uint32_t block = 1)
    {
        const AENC_STREAM_HEADER_S stream = stream_of(bytes);
        return HI_MPI_ADEC_SendStream(channel, &stream, block);
    }
    static ADEC_CHN_STAT_S stat_of(int32_t channel)
    {
        ADEC_CHN_STAT_S stat = {};
        EXPECT_EQ(HI_MPI_ADEC_GetChnStat(channel, &stat), 0);
        return stat;
    }
    // `frames` frames of 160 points through an encoder channel.
    static std::vector<std::vector<uint8_t>> encoded(int32_t type, size_t frames, uint32_t word = 0)
    {
        FakeInput unbound({}, nullptr);
        unbound.bound = false;
        std::vector<int16_t> all = signal(kTilted, frames * 160);
        std::vector<std::vector<uint8_t>> out;
        EXPECT_EQ(create_aenc(31, type, 2, word), 0);
        for (size_t i = 0; i < frames; ++i) {
            std::vector<int16_t> part(all.begin() + long(i) * 160, all.begin() + long(i + 1) * 160);
            const AUDIO_FRAME_S frame = frame_of(part);
            AENC_STREAM_HEADER_S stream = {};
            EXPECT_EQ(HI_MPI_AENC_SendFrame(31, &frame), 0);
            EXPECT_EQ(HI_MPI_AENC_GetStream(31, &stream, 0), 0);
            out.emplace_back(stream.pu8Data, stream.pu8Data + stream.u32Len);
            EXPECT_EQ(HI_MPI_AENC_ReleaseStream(31, &stream), 0);
        }
        EXPECT_EQ(HI_MPI_AENC_DestroyChn(31), 0);
        return out;
    }
};

struct Codec {
    int32_t type;
    uint32_t word;        // attribute of the encoder, and of the decoder in pack mode
    uint32_t stream_word; // attribute of the decoder in stream mode
};
constexpr Codec kCodecs[] = {
    {PT_LPCM, 0, 0},
    {PT_G711A, 0, 0},
    {PT_G711U, 0, 0},
    {PT_G726, G726_16K, G726_16K},
    {PT_G726, G726_40K_AAL2, G726_40K_AAL2},
    {PT_ADPCM, ADPCM_DVI4, ADPCM_DVI4 | 160 << 16},
};

TEST_F(Adec, EveryOperationRefusesChannelsThatCannotBeAndArentThere)
{
    ADEC_CHN_STAT_S stat;
    std::vector<uint8_t> bytes(10);
    const AENC_STREAM_HEADER_S stream = stream_of(bytes);
    uint32_t word = 0;
    const ADEC_CHN_ATTR_S attr = {PT_G711A, 5, ADEC_MODE_PACK, &word};
    const std::pair<const char*, std::function<int32_t(int32_t)>> operations[] = {
        {"SendStream", [&](int32_t c) { return HI_MPI_ADEC_SendStream(c, &stream, 0); }},
        {"ClearChnBuf", HI_MPI_ADEC_ClearChnBuf},
        {"GetChnStat", [&](int32_t c) { return HI_MPI_ADEC_GetChnStat(c, &stat); }},
        {"GetFd", HI_MPI_ADEC_GetFd},
        {"DestroyChn", HI_MPI_ADEC_DestroyChn},
        {"CreateChn", [&](int32_t c) { return HI_MPI_ADEC_CreateChn(c, &attr); }},
    };
    for (const auto& [name, call] : operations) {
        SCOPED_TRACE(name);
        const bool creates = std::string(name) == "CreateChn";
        for (int32_t wrong : {-1, 32, 33, INT32_MAX, INT32_MIN})
            EXPECT_EQ(call(wrong), adec(MPP_ERR_CHANNEL)) << wrong;
        for (int32_t absent : {0, 31}) EXPECT_EQ(call(absent), creates ? 0 : adec(MPP_ERR_MISSING)) << absent;
        EXPECT_EQ(MPI_ADEC_DeInit(), 0);
        EXPECT_EQ(call(0), adec(MPP_ERR_REFUSED));
        EXPECT_EQ(MPI_ADEC_Init(), 0);
        EXPECT_EQ(call(0), creates ? 0 : adec(MPP_ERR_MISSING))
            << "stopping and starting leaves nothing behind";
    }
}

TEST_F(Adec, NullPointersAndWordsOutsideTheirBoundsAreRefused)
{
    uint32_t word = 0;
    EXPECT_EQ(HI_MPI_ADEC_CreateChn(0, nullptr), adec(MPP_ERR_NULL));
    const std::pair<ADEC_CHN_ATTR_S, uint32_t> attributes[] = {
        {{PT_LPCM, 5, 0, nullptr}, MPP_ERR_NULL}, {{PT_LPCM, 0, 0, &word}, MPP_ERR_PARAM},
        {{PT_LPCM, 1, 0, &word}, MPP_ERR_PARAM},  {{PT_LPCM, 51, 0, &word}, MPP_ERR_PARAM},
        {{PT_LPCM, 5, 2, &word}, MPP_ERR_PARAM},  {{PT_LPCM, 5, UINT32_MAX, &word}, MPP_ERR_PARAM},
        {{-1, 5, 0, &word}, MPP_ERR_PARAM},       {{22, 5, 0, &word}, MPP_ERR_PARAM},
        {{PT_ADPCM, 5, 1, &word}, MPP_ERR_PARAM}, // a stream whose frames have no known end
    };
    for (const auto& [attr, number] : attributes) EXPECT_EQ(HI_MPI_ADEC_CreateChn(0, &attr), adec(number));
    ASSERT_EQ(create_adec(0, PT_G711A), 0);
    EXPECT_EQ(create_adec(0, PT_G711U), adec(MPP_ERR_EXISTS));
    AENC_STREAM_HEADER_S stream = {};
    EXPECT_EQ(HI_MPI_ADEC_SendStream(0, nullptr, 0), adec(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_ADEC_SendStream(0, &stream, 0), adec(MPP_ERR_PARAM)) << "an empty pack";
    stream.u32Len = 1;
    EXPECT_EQ(HI_MPI_ADEC_SendStream(0, &stream, 0), adec(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_ADEC_GetChnStat(0, nullptr), adec(MPP_ERR_NULL));
    EXPECT_EQ(send(0, {1}, 2), adec(MPP_ERR_PARAM));
    EXPECT_EQ(send(0, std::vector<uint8_t>(ADEC_MAX_STREAM_LEN + 1)), adec(MPP_ERR_PARAM));
}

TEST_F(Adec, FramesThatNothingTakesAreCountedAndNoFailure)
{
    ASSERT_EQ(create_adec(0, PT_G711A), 0);
    EXPECT_EQ(send(0, {1}), 0);
    EXPECT_EQ(stat_of(0).u32Unheard, 1u) << "nothing is bound";
    ASSERT_EQ(bind(0), 0);
    EXPECT_EQ(send(0, {1}), 0);
    EXPECT_EQ(stat_of(0).u32Unheard, 1u);
    refusal = MPP_ERROR(HI_ID_AO, MPP_ERR_REFUSED);
    EXPECT_EQ(send(0, std::vector<uint8_t>(AUDIO_MAX_POINTS + 1)), 0);
    EXPECT_EQ(stat_of(0).u32Unheard, 3u) << "refused, two frames of one call";
    EXPECT_EQ(stat_of(0).u32Frames, 4u);
}

TEST_F(Adec, EachCodecGivesTheSameSamplesPackedAndStreamedInAnyChunks)
{
    for (const Codec& codec : kCodecs) {
        SCOPED_TRACE(testing::Message() << codec.type << " attribute " << codec.word);
        const auto packs = encoded(codec.type, 12, codec.word);
        ASSERT_EQ(create_adec(7, codec.type, ADEC_MODE_PACK, codec.word), 0);
        ASSERT_EQ(bind(7), 0);
        played.clear();
        std::vector<uint8_t> bytes;
        for (const auto& pack : packs) {
            EXPECT_EQ(send(7, pack), 0);
            EXPECT_EQ(played.back().size(), 160u);
            bytes.insert(bytes.end(), pack.begin(), pack.end());
        }
        const std::vector<int16_t> expected = signal_played();
        EXPECT_EQ(expected.size(), 12u * 160);
        ASSERT_EQ(HI_MPI_ADEC_DestroyChn(7), 0);
        for (size_t chunk : {size_t(1), size_t(7), size_t(321), bytes.size()}) {
            ASSERT_EQ(create_adec(7, codec.type, ADEC_MODE_STREAM, codec.stream_word), 0);
            played.clear();
            for (size_t at = 0; at < bytes.size(); at += chunk) {
                const auto from = bytes.begin() + long(at);
                EXPECT_EQ(send(7, {from, from + long(std::min(chunk, bytes.size() - at))}), 0);
            }
            EXPECT_EQ(send(7, {}), 0) << "what is kept is played";
            EXPECT_EQ(signal_played(), expected) << "chunks of " << chunk;
            EXPECT_LE(played.size(), 12u) << "a byte at a time does not become a frame a byte";
            EXPECT_EQ(stat_of(7).u32Damaged, 0u);
            ASSERT_EQ(HI_MPI_ADEC_DestroyChn(7), 0);
        }
        const MPP_CHN_S output = {HI_ID_AO, 0, 0};
        EXPECT_EQ(SYS_UnBind(&output), 0);
    }
}

TEST_F(Adec, DamageCostsTheDamagedFramesAndNoMore)
{
    for (uint32_t mode : {ADEC_MODE_PACK, ADEC_MODE_STREAM}) {
        SCOPED_TRACE(mode);
        auto packs = encoded(PT_ADPCM, 10);
        ASSERT_EQ(create_adec(1, PT_ADPCM, mode, mode == ADEC_MODE_STREAM ? 160 << 16 : 0), 0);
        if (mode == ADEC_MODE_PACK) {
            ASSERT_EQ(bind(1), 0);
        }
        played.clear();
        for (const auto& pack : packs) send(1, pack);
        const auto whole = played;
        played.clear();
        packs[3][2] = packs[6][2] = 89; // a step index that does not exist
        int refused = 0;
        for (const auto& pack : packs) refused += send(1, pack) != 0;
        EXPECT_EQ(refused, 2);
        EXPECT_EQ(stat_of(1).u32Damaged, 2u);
        std::vector<std::vector<int16_t>> rest = whole;
        rest.erase(rest.begin() + 6);
        rest.erase(rest.begin() + 3);
        EXPECT_EQ(played, rest);
        EXPECT_EQ(HI_MPI_ADEC_DestroyChn(1), 0);
    }
    ASSERT_EQ(create_adec(2, PT_LPCM), 0);
    EXPECT_EQ(send(2, {1, 2, 3}), adec(MPP_ERR_PARAM)) << "a sample and a half";
    EXPECT_EQ(stat_of(2).u32Frames, 1u) << "the whole one is played";
}

TEST_F(Adec, WhatStreamModeKeepsCanBeDropped)
{
    ASSERT_EQ(create_adec(0, PT_LPCM, ADEC_MODE_STREAM), 0);
    ASSERT_EQ(bind(0), 0);
    EXPECT_EQ(send(0, std::vector<uint8_t>(639)), 0);
    EXPECT_EQ(stat_of(0).u32Kept, 639u);
    EXPECT_TRUE(played.empty());
    EXPECT_EQ(HI_MPI_ADEC_ClearChnBuf(0), 0);
    EXPECT_EQ(send(0, {}), 0);
    EXPECT_TRUE(played.empty());
    EXPECT_EQ(send(0, {5, 0, 6}), 0);
    EXPECT_EQ(send(0, {}), adec(MPP_ERR_PARAM)) << "half a sample is left";
    EXPECT_EQ(signal_played(), std::vector<int16_t>{5});
}

// Decoders as a program could register them, wrong in one way each.
int32_t step = 0, left_behind = 0;
uint32_t says_bytes = 0, says_channels = 1;
ADEC_DECODER_S odd_decoder()
{
    ADEC_DECODER_S codec = {90, "odd", nullptr, nullptr, nullptr, nullptr};
    codec.pfnOpenDecoder = [](void*, void**) { return 0; };
    codec.pfnDecodeFrm = [](void*, uint8_t** at, int32_t* left, uint16_t* out, uint32_t* bytes,
                            uint32_t* channels) {
        *at += step;
        *left -= step + left_behind;
        out[0] = 7;
        *bytes = says_bytes;
        *channels = says_channels;
        return 0;
    };
    codec.pfnGetFrmInfo = [](void*, void* info) {
        *static_cast<ADEC_FRAME_INFO_S*>(info) = {2, 1};
        return 0;
    };
    codec.pfnCloseDecoder = [](void*) { return 0; };
    return codec;
}

TEST_F(Adec, ARegisteredCodecIsBelievedOnlyAsFarAsItsBoundsGo)
{
    const ADEC_DECODER_S codec = odd_decoder();
    int32_t handle = -1;
    ASSERT_EQ(HI_MPI_ADEC_RegeisterDecoder(&handle, &codec), 0);
    struct Lie {
        int32_t step, left_behind;
        uint32_t bytes, channels;
    };
    for (const Lie& lie : {Lie{99999, 0, 2, 1},
                           {-1, 0, 2, 1},
                           {1, 1, 2, 1},
                           {1, 0, 4097, 1},
                           {1, 0, UINT32_MAX, 1},
                           {1, 0, 2, 0},
                           {1, 0, 2, 3},
                           {0, 0, 0, 1}}) {
        step = lie.step, left_behind = lie.left_behind, says_bytes = lie.bytes, says_channels = lie.channels;
        for (uint32_t mode : {ADEC_MODE_PACK, ADEC_MODE_STREAM}) {
            ASSERT_EQ(create_adec(0, 90, mode), 0);
            EXPECT_EQ(bind(0), 0);
            EXPECT_EQ(send(0, std::vector<uint8_t>(5000)), adec(MPP_ERR_PARAM));
            EXPECT_GT(stat_of(0).u32Damaged, 0u);
            EXPECT_TRUE(played.empty());
            EXPECT_EQ(HI_MPI_ADEC_DestroyChn(0), 0);
            const MPP_CHN_S output = {HI_ID_AO, 0, 0};
            EXPECT_EQ(SYS_UnBind(&output), 0);
        }
    }
}

TEST_F(Adec, StereoFramesCarryBothBlocks)
{
    const ADEC_DECODER_S codec = odd_decoder();
    int32_t handle = -1;
    ASSERT_EQ(HI_MPI_ADEC_RegeisterDecoder(&handle, &codec), 0);
    ASSERT_EQ(create_adec(0, 90), 0);
    ASSERT_EQ(bind(0), 0);
    step = 4, left_behind = 0, says_bytes = 4096, says_channels = 2;
    on_frame = [](const AUDIO_FRAME_S& frame) {
        EXPECT_EQ(frame.u32SoundMode, uint32_t(AUDIO_SOUND_STEREO));
        EXPECT_EQ(frame.pu8VirtAddr[1], frame.pu8VirtAddr[0] + 4096);
        EXPECT_EQ(frame.s32PoolId, -1);
        EXPECT_EQ(frame.u32BitWidth, uint32_t(AUDIO_BIT_WIDTH_16));
    };
    EXPECT_EQ(send(0, {1, 2, 3, 4}), 0);
    EXPECT_EQ(played.size(), 1u);
}

TEST_F(Adec, CallersTakeTurnsAndDestroyingWaitsForTheOneThatDecodes)
{
    ASSERT_EQ(create_adec(0, PT_LPCM), 0);
    ASSERT_EQ(bind(0), 0);
    std::atomic<bool> inside = false, go_on = false;
    on_frame = [&](const AUDIO_FRAME_S&) {
        inside = true;
        while (!go_on) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    int32_t first = -1, second = -1, destroyed = -1;
    std::thread sender([&] { first = send(0, {1, 2}); });
    while (!inside) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(send(0, {3, 4}, 0), adec(MPP_ERR_FULL));
    std::thread waiter([&] { second = send(0, {5, 6}); });
    std::thread destroyer([&] { destroyed = HI_MPI_ADEC_DestroyChn(0); });
    waiter.join(); // leaves as soon as the channel is going
    EXPECT_EQ(second, adec(MPP_ERR_MISSING));
    EXPECT_EQ(create_adec(0, PT_LPCM), adec(MPP_ERR_EXISTS)) << "its codec is still open";
    go_on = true;
    sender.join();
    destroyer.join();
    EXPECT_EQ(first, 0);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(played.size(), 1u);
    EXPECT_EQ(create_adec(0, PT_LPCM), 0);
}

// One thread encodes, one takes and decodes, a third looks on, makes and unmakes another channel: for
// ThreadSanitizer, and for the count of frames.
TEST_F(Adec, FramesInAreFramesOutUnderThreads)
{
    constexpr uint32_t kFrames = 400;
    FakeInput unbound({}, nullptr);
    unbound.bound = false;
    ASSERT_EQ(create_aenc(0, PT_G711A, 4), 0);
    ASSERT_EQ(create_adec(0, PT_G711A), 0);
    ASSERT_EQ(bind(0), 0);
    std::atomic<bool> over = false;
    std::thread producer([&] {
        std::vector<int16_t> samples(160);
        for (uint32_t i = 0; i < kFrames;) {
            samples.assign(160, int16_t(i * 64));
            const AUDIO_FRAME_S frame = frame_of(samples, i);
            if (HI_MPI_AENC_SendFrame(0, &frame) == 0)
                ++i;
            else
                std::this_thread::yield();
        }
    });
    std::thread consumer([&] {
        for (uint32_t i = 0; i < kFrames; ++i) {
            AENC_STREAM_HEADER_S stream = {};
            ASSERT_EQ(HI_MPI_AENC_GetStream(0, &stream, 1), 0);
            EXPECT_EQ(stream.u32Seq, i);
            EXPECT_EQ(HI_MPI_ADEC_SendStream(0, &stream, 1), 0);
            EXPECT_EQ(HI_MPI_AENC_ReleaseStream(0, &stream), 0);
        }
        over = true;
    });
    std::thread other([&] {
        AENC_CHN_STAT_S encoded;
        ADEC_CHN_STAT_S decoded;
        while (!over) {
            HI_MPI_AENC_GetChnStat(0, &encoded);
            HI_MPI_ADEC_GetChnStat(0, &decoded);
            create_aenc(1, PT_LPCM);
            create_adec(1, PT_G726, ADEC_MODE_STREAM);
            HI_MPI_ADEC_DestroyChn(1);
            HI_MPI_AENC_DestroyChn(1);
        }
    });
    producer.join();
    consumer.join();
    other.join();
    EXPECT_EQ(played.size(), kFrames);
    EXPECT_EQ(stat_of(0).u32Frames, kFrames);
}

} // namespace
