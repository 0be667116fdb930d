// Encoder and decoder channels alike: what both refuse, and both at once under threads.
#include "tests/unit/mpp/codec_channels.hpp"

#include "mpi/src/mpi_ai.h"

using namespace codec_test;

extern "C" {

int32_t __wrap_HI_MPI_SYS_GetBindByDest(MPP_CHN_S* destination, MPP_CHN_S* source)
{
    if (!bound_input.take || destination->s32ModId != HI_ID_AENC) return MPP_ERROR(HI_ID_SYS, MPP_ERR_PARAM);
    *source = {HI_ID_AI, 1, 3};
    return 0;
}

int32_t __wrap_HI_MPI_AI_GetFrame(int32_t device, int32_t channel, AUDIO_FRAME_S* frame, AEC_FRAME_S*,
                                  uint32_t block)
{
    if (device != 1 || channel != 3) return MPP_ERROR(HI_ID_AI, MPP_ERR_CHANNEL);
    const int32_t result = bound_input.take(*frame, block);
    if (result == 0) ++bound_input.out;
    return result;
}

int32_t __wrap_HI_MPI_AI_ReleaseFrame(int32_t, int32_t, AUDIO_FRAME_S*, AEC_FRAME_S*)
{
    --bound_input.out;
    return 0;
}
}

namespace {

class CodecChannels : public Channels {
protected:
    std::vector<int16_t> samples = signal(kTilted, 160);
    AUDIO_FRAME_S frame = frame_of(samples);
    AENC_STREAM_HEADER_S stream = {};
    AENC_CHN_STAT_S encoded = {};
    ADEC_CHN_STAT_S decoded = {};
};

TEST_F(CodecChannels, EveryOperationRefusesChannelsThatCannotBeAndArentThere)
{
    const struct {
        const char* name;
        bool encoder;
        std::function<int32_t(int32_t)> call;
    } operations[] = {
        {"SendFrame", true, [&](int32_t c) { return HI_MPI_AENC_SendFrame(c, &frame); }},
        {"GetStream", true, [&](int32_t c) { return HI_MPI_AENC_GetStream(c, &stream, 0); }},
        {"GetStream waiting", true, [&](int32_t c) { return HI_MPI_AENC_GetStream(c, &stream, 1); }},
        {"ReleaseStream", true, [&](int32_t c) { return HI_MPI_AENC_ReleaseStream(c, &stream); }},
        {"AENC_GetChnStat", true, [&](int32_t c) { return HI_MPI_AENC_GetChnStat(c, &encoded); }},
        {"AENC_GetFd", true, HI_MPI_AENC_GetFd},
        {"AENC_DestroyChn", true, HI_MPI_AENC_DestroyChn},
        {"CreateChn", true, [&](int32_t c) { return create_aenc(c, PT_G711A); }},
        {"SendStream", false, [&](int32_t c) { return HI_MPI_ADEC_SendStream(c, &stream, 0); }},
        {"ClearChnBuf", false, HI_MPI_ADEC_ClearChnBuf},
        {"ADEC_GetChnStat", false, [&](int32_t c) { return HI_MPI_ADEC_GetChnStat(c, &decoded); }},
        {"ADEC_GetFd", false, HI_MPI_ADEC_GetFd},
        {"ADEC_DestroyChn", false, HI_MPI_ADEC_DestroyChn},
        {"CreateChn", false, [&](int32_t c) { return create_adec(c, PT_G711A); }},
    };
    for (const auto& [name, encoder, call] : operations) {
        SCOPED_TRACE(name);
        const auto error = encoder ? aenc : adec;
        const int32_t missing = name == std::string("CreateChn") ? 0 : error(MPP_ERR_MISSING);
        for (int32_t wrong : {-1, 32, 33, INT32_MAX, INT32_MIN})
            EXPECT_EQ(call(wrong), error(MPP_ERR_CHANNEL)) << wrong;
        for (int32_t absent : {0, 31}) EXPECT_EQ(call(absent), missing) << absent;
        EXPECT_EQ(encoder ? MPI_AENC_DeInit() : MPI_ADEC_DeInit(), 0);
        EXPECT_EQ(call(0), error(MPP_ERR_REFUSED));
        EXPECT_EQ(encoder ? MPI_AENC_Init() : MPI_ADEC_Init(), 0);
        EXPECT_EQ(call(0), missing) << "stopping and starting leaves nothing behind";
    }
}

TEST_F(CodecChannels, NullPointersAndWordsOutsideTheirBoundsAreRefused)
{
    uint32_t word = 0;
    EXPECT_EQ(HI_MPI_AENC_CreateChn(0, nullptr), aenc(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_ADEC_CreateChn(0, nullptr), adec(MPP_ERR_NULL));
    const std::pair<AENC_CHN_ATTR_S, uint32_t> encoders[] = {
        {{PT_LPCM, 30, nullptr}, MPP_ERR_NULL}, {{PT_G711A, 0, &word}, MPP_ERR_PARAM},
        {{PT_G711A, 1, &word}, MPP_ERR_PARAM},  {{PT_G711A, 51, &word}, MPP_ERR_PARAM},
        {{-1, 30, &word}, MPP_ERR_PARAM},       {{PT_G711A, UINT32_MAX, &word}, MPP_ERR_PARAM},
        {{0, 30, &word}, MPP_ERR_PARAM},        {{18, 30, &word}, MPP_ERR_PARAM},
        {{22, 30, &word}, MPP_ERR_PARAM},       {{50, 30, &word}, MPP_ERR_PARAM},
    };
    for (const auto& [attr, number] : encoders) EXPECT_EQ(HI_MPI_AENC_CreateChn(0, &attr), aenc(number));
    EXPECT_EQ(create_aenc(0, PT_G726, 30, G726_40K_AAL2 + 1), aenc(MPP_ERR_PARAM))
        << "the codec's own refusal";
    for (uint32_t size : {50u, 2u}) {
        EXPECT_EQ(HI_MPI_AENC_DestroyChn(0), size == 50 ? aenc(MPP_ERR_MISSING) : 0);
        EXPECT_EQ(create_aenc(0, PT_G711A, size), 0);
        EXPECT_EQ(create_aenc(0, PT_G711A, size), aenc(MPP_ERR_EXISTS));
    }
    const std::pair<ADEC_CHN_ATTR_S, uint32_t> decoders[] = {
        {{PT_LPCM, 5, 0, nullptr}, MPP_ERR_NULL}, {{PT_LPCM, 0, 0, &word}, MPP_ERR_PARAM},
        {{PT_LPCM, 1, 0, &word}, MPP_ERR_PARAM},  {{PT_LPCM, 51, 0, &word}, MPP_ERR_PARAM},
        {{PT_LPCM, 5, 2, &word}, MPP_ERR_PARAM},  {{PT_LPCM, 5, UINT32_MAX, &word}, MPP_ERR_PARAM},
        {{-1, 5, 0, &word}, MPP_ERR_PARAM},       {{22, 5, 0, &word}, MPP_ERR_PARAM},
        {{PT_ADPCM, 5, 1, &word}, MPP_ERR_PARAM}, // a stream whose frames have no known end
    };
    for (const auto& [attr, number] : decoders) EXPECT_EQ(HI_MPI_ADEC_CreateChn(0, &attr), adec(number));
    ASSERT_EQ(create_adec(0, PT_G711A), 0);
    EXPECT_EQ(create_adec(0, PT_G711U), adec(MPP_ERR_EXISTS));

    EXPECT_EQ(HI_MPI_AENC_SendFrame(0, nullptr), aenc(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_AENC_GetStream(0, nullptr, 0), aenc(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_AENC_ReleaseStream(0, nullptr), aenc(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_AENC_GetChnStat(0, nullptr), aenc(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_ADEC_GetChnStat(0, nullptr), adec(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_ADEC_SendStream(0, nullptr, 0), adec(MPP_ERR_NULL));
    EXPECT_EQ(HI_MPI_ADEC_SendStream(0, &stream, 0), adec(MPP_ERR_PARAM)) << "an empty pack";
    stream.u32Len = 1;
    EXPECT_EQ(HI_MPI_ADEC_SendStream(0, &stream, 0), adec(MPP_ERR_NULL));
    EXPECT_EQ(send(std::vector<uint8_t>(ADEC_MAX_STREAM_LEN + 1)), adec(MPP_ERR_PARAM));
    for (uint32_t block : {2u, UINT32_MAX}) {
        EXPECT_EQ(HI_MPI_AENC_GetStream(0, &stream, block), aenc(MPP_ERR_PARAM));
        EXPECT_EQ(send({1}, block), adec(MPP_ERR_PARAM));
    }
}

// One thread encodes, one takes and decodes, a third looks on, makes and unmakes another channel: for
// ThreadSanitizer, and for the count of frames.
TEST_F(CodecChannels, FramesInAreFramesOutUnderThreads)
{
    constexpr uint32_t kFrames = 400;
    ASSERT_EQ(create_aenc(0, PT_G711A, 4), 0);
    ASSERT_EQ(create_adec(0, PT_G711A), 0);
    ASSERT_EQ(bind(0), 0);
    std::atomic<bool> over = false;
    std::thread producer([&] {
        for (uint32_t sent = 0; sent < kFrames;) {
            sent += HI_MPI_AENC_SendFrame(0, &frame) == 0;
            std::this_thread::yield();
        }
    });
    std::thread consumer([&] {
        for (uint32_t i = 0; i < kFrames; ++i) {
            ASSERT_EQ(HI_MPI_AENC_GetStream(0, &stream, 1), 0);
            EXPECT_EQ(stream.u32Seq, i);
            EXPECT_EQ(HI_MPI_ADEC_SendStream(0, &stream, 1), 0);
            EXPECT_EQ(HI_MPI_AENC_ReleaseStream(0, &stream), 0);
        }
        over = true;
    });
    std::thread other([&] {
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
    EXPECT_EQ(adec_stat().u32Frames, kFrames);
}

} // namespace
