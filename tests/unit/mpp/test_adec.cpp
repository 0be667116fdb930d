// Decoder channels: what is sent to them and what reaches the channels bound to them.
#include "tests/unit/mpp/codec_channels.hpp"

using namespace codec_test;

namespace {

class Adec : public Channels {
protected:
    // `frames` frames of 160 points through an encoder channel.
    static std::vector<std::vector<uint8_t>> encoded(int32_t type, size_t frames, uint32_t word = 0)
    {
        const std::vector<int16_t> all = signal(kTilted, frames * 160);
        std::vector<std::vector<uint8_t>> out;
        EXPECT_EQ(create_aenc(31, type, 2, word), 0);
        for (size_t at = 0; at < all.size(); at += 160) {
            std::vector<int16_t> part(all.begin() + long(at), all.begin() + long(at) + 160);
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

TEST_F(Adec, FramesThatNothingTakesAreCountedAndNoFailure)
{
    ASSERT_EQ(create_adec(0, PT_G711A), 0);
    EXPECT_EQ(send({1}), 0);
    EXPECT_EQ(adec_stat().u32Unheard, 1u) << "nothing is bound";
    ASSERT_EQ(bind(0), 0);
    EXPECT_EQ(send({1}), 0);
    EXPECT_EQ(adec_stat().u32Unheard, 1u);
    refusal = MPP_ERROR(HI_ID_AO, MPP_ERR_REFUSED);
    EXPECT_EQ(send(std::vector<uint8_t>(AUDIO_MAX_POINTS + 1)), 0);
    EXPECT_EQ(adec_stat().u32Unheard, 3u) << "refused, two frames of one call";
    EXPECT_EQ(adec_stat().u32Frames, 4u);
}

TEST_F(Adec, EachCodecGivesTheSameSamplesPackedAndStreamedInAnyChunks)
{
    const struct {
        int32_t type;
        uint32_t word;        // attribute of the encoder, and of the decoder in pack mode
        uint32_t stream_word; // attribute of the decoder in stream mode
    } codecs[] = {
        {PT_LPCM, 0, 0},
        {PT_G711A, 0, 0},
        {PT_G711U, 0, 0},
        {PT_G726, G726_16K, G726_16K},
        {PT_G726, G726_24K, G726_24K},
        {PT_G726, G726_32K_AAL2, G726_32K_AAL2},
        {PT_G726, G726_40K_AAL2, G726_40K_AAL2},
        {PT_ADPCM, ADPCM_DVI4, ADPCM_DVI4 | 160 << 16},
    };
    for (const auto& codec : codecs) {
        SCOPED_TRACE(testing::Message() << codec.type << " attribute " << codec.word);
        rebuild_adec(codec.type, ADEC_MODE_PACK, codec.word);
        std::vector<uint8_t> bytes;
        for (const auto& pack : encoded(codec.type, 30, codec.word)) {
            EXPECT_EQ(send(pack), 0);
            EXPECT_EQ(played.back().size(), 160u);
            bytes.insert(bytes.end(), pack.begin(), pack.end());
        }
        const std::vector<int16_t> expected = signal_played();
        EXPECT_EQ(expected.size(), 30u * 160);
        for (size_t chunk : {size_t(1), size_t(7), size_t(321), bytes.size()}) {
            rebuild_adec(codec.type, ADEC_MODE_STREAM, codec.stream_word);
            for (size_t at = 0; at < bytes.size(); at += chunk) {
                const auto from = bytes.begin() + long(at);
                EXPECT_EQ(send({from, from + long(std::min(chunk, bytes.size() - at))}), 0);
            }
            EXPECT_EQ(send({}), 0) << "what is kept is played";
            EXPECT_EQ(signal_played(), expected) << "chunks of " << chunk;
        }
    }
}

TEST_F(Adec, DamageCostsTheDamagedFramesAndNoMore)
{
    for (uint32_t mode : {ADEC_MODE_PACK, ADEC_MODE_STREAM}) {
        SCOPED_TRACE(mode);
        auto packs = encoded(PT_ADPCM, 10);
        rebuild_adec(PT_ADPCM, mode, mode == ADEC_MODE_STREAM ? 160 << 16 : 0);
        for (const auto& pack : packs) send(pack);
        auto rest = played;
        played.clear();
        packs[3][2] = packs[6][2] = 89; // a step index that does not exist
        int refused = 0;
        for (const auto& pack : packs) refused += send(pack) != 0;
        EXPECT_EQ(refused, 2);
        EXPECT_EQ(adec_stat().u32Damaged, 2u);
        rest.erase(rest.begin() + 6);
        rest.erase(rest.begin() + 3);
        EXPECT_EQ(played, rest);
    }
    rebuild_adec(PT_LPCM, ADEC_MODE_PACK);
    EXPECT_EQ(send({1, 2, 3}), adec(MPP_ERR_PARAM)) << "a sample and a half";
    EXPECT_EQ(adec_stat().u32Frames, 1u) << "the whole one is played";
}

TEST_F(Adec, WhatStreamModeKeepsCanBeDropped)
{
    rebuild_adec(PT_LPCM, ADEC_MODE_STREAM);
    EXPECT_EQ(send(std::vector<uint8_t>(639)), 0);
    EXPECT_EQ(adec_stat().u32Kept, 639u);
    EXPECT_TRUE(played.empty());
    EXPECT_EQ(HI_MPI_ADEC_ClearChnBuf(0), 0);
    EXPECT_EQ(send({}), 0);
    EXPECT_TRUE(played.empty());
    EXPECT_EQ(send({5, 0, 6}), 0);
    EXPECT_EQ(send({}), adec(MPP_ERR_PARAM)) << "half a sample is left";
    EXPECT_EQ(signal_played(), std::vector<int16_t>{5});
}

// A decoder as a program could register it: what it says of one call.
struct Answer {
    int32_t step, left_behind;
    uint32_t bytes, channels;
};
Answer scripted;

void register_odd_decoder()
{
    ADEC_DECODER_S codec = {90, "odd", nullptr, nullptr, nullptr, nullptr};
    codec.pfnOpenDecoder = [](void*, void**) { return 0; };
    codec.pfnDecodeFrm = [](void*, uint8_t** at, int32_t* left, uint16_t* out, uint32_t* bytes,
                            uint32_t* channels) {
        *at += scripted.step;
        *left -= scripted.step + scripted.left_behind;
        out[0] = 7;
        *bytes = scripted.bytes;
        *channels = scripted.channels;
        return 0;
    };
    codec.pfnGetFrmInfo = [](void*, void* info) {
        *static_cast<ADEC_FRAME_INFO_S*>(info) = {2, 1};
        return 0;
    };
    codec.pfnCloseDecoder = [](void*) { return 0; };
    int32_t handle = -1;
    ASSERT_EQ(HI_MPI_ADEC_RegeisterDecoder(&handle, &codec), 0);
}

TEST_F(Adec, ARegisteredCodecIsBelievedOnlyAsFarAsItsBoundsGo)
{
    register_odd_decoder();
    for (const Answer& wrong : {Answer{99999, 0, 2, 1},
                                {-1, 0, 2, 1},
                                {1, 1, 2, 1},
                                {1, 0, 4097, 1},
                                {1, 0, UINT32_MAX, 1},
                                {1, 0, 2, 0},
                                {1, 0, 2, 3},
                                {0, 0, 0, 1}})
        for (uint32_t mode : {ADEC_MODE_PACK, ADEC_MODE_STREAM}) {
            scripted = wrong;
            rebuild_adec(90, mode);
            EXPECT_EQ(send(std::vector<uint8_t>(5000)), adec(MPP_ERR_PARAM));
            EXPECT_GT(adec_stat().u32Damaged, 0u);
            EXPECT_TRUE(played.empty());
        }
}

TEST_F(Adec, StereoFramesCarryBothBlocks)
{
    register_odd_decoder();
    rebuild_adec(90, ADEC_MODE_PACK);
    scripted = {4, 0, 4096, 2};
    on_frame = [](const AUDIO_FRAME_S& frame) {
        EXPECT_EQ(frame.u32SoundMode, uint32_t(AUDIO_SOUND_STEREO));
        EXPECT_EQ(frame.pu8VirtAddr[1], frame.pu8VirtAddr[0] + 4096);
        EXPECT_EQ(frame.s32PoolId, -1);
        EXPECT_EQ(frame.u32BitWidth, uint32_t(AUDIO_BIT_WIDTH_16));
    };
    EXPECT_EQ(send({1, 2, 3, 4}), 0);
    EXPECT_EQ(played.size(), 1u);
}

TEST_F(Adec, CallersTakeTurnsAndDestroyingWaitsForTheOneThatDecodes)
{
    rebuild_adec(PT_LPCM, ADEC_MODE_PACK);
    ASSERT_FALSE(HasFailure());
    std::atomic<bool> inside = false, go_on = false;
    on_frame = [&](const AUDIO_FRAME_S&) {
        inside = true;
        go_on.wait(false);
    };
    int32_t first = -1, second = -1, destroyed = -1;
    std::thread sender([&] { first = send({1, 2}); });
    while (!inside) std::this_thread::yield();
    EXPECT_EQ(send({3, 4}, 0), adec(MPP_ERR_FULL));
    std::thread waiter([&] { second = send({5, 6}); });
    std::thread destroyer([&] { destroyed = HI_MPI_ADEC_DestroyChn(0); });
    waiter.join(); // leaves as soon as the channel is going
    EXPECT_EQ(second, adec(MPP_ERR_MISSING));
    EXPECT_EQ(create_adec(0, PT_LPCM), adec(MPP_ERR_EXISTS)) << "its codec is still open";
    go_on = true;
    go_on.notify_all();
    sender.join();
    destroyer.join();
    EXPECT_EQ(first, 0);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(played.size(), 1u);
    EXPECT_EQ(create_adec(0, PT_LPCM), 0);
}

} // namespace
