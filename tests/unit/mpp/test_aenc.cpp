// Encoder channels by themselves, their input sent by hand or fetched from a bound one.
#include "tests/unit/mpp/codec_channels.hpp"

#include <condition_variable>

using namespace codec_test;

namespace {

class Aenc : public Channels {
protected:
    std::vector<int16_t> samples = signal(kTilted, 160);
    AUDIO_FRAME_S frame = frame_of(samples, 0x123456789ull);
    AENC_STREAM_HEADER_S stream = {};
};

TEST_F(Aenc, FramesComeOutOneAtATimeInOrderAndNoneIsOverwritten)
{
    ASSERT_EQ(create_aenc(3, PT_G711A, 2), 0);
    EXPECT_EQ(HI_MPI_AENC_GetStream(3, &stream, 0), aenc(MPP_ERR_EMPTY));
    std::vector<std::vector<int16_t>> inputs;
    for (int i = 0; i < 3; ++i) inputs.push_back(std::vector<int16_t>(160, int16_t(1000 * i)));
    AUDIO_FRAME_S frames[] = {frame_of(inputs[0], 5), frame_of(inputs[1], 1ull << 40), frame_of(inputs[2])};
    EXPECT_EQ(HI_MPI_AENC_SendFrame(3, &frames[0]), 0);
    EXPECT_EQ(HI_MPI_AENC_SendFrame(3, &frames[1]), 0);
    EXPECT_EQ(HI_MPI_AENC_SendFrame(3, &frames[2]), aenc(MPP_ERR_FULL));

    ASSERT_EQ(HI_MPI_AENC_GetStream(3, &stream, 1), 0);
    const std::vector<uint8_t> first(stream.pu8Data, stream.pu8Data + stream.u32Len);
    EXPECT_EQ(first, std::vector<uint8_t>(160, first[0]));
    EXPECT_EQ(stream.u32Seq, 0u);
    EXPECT_EQ(stream.u64TimeStamp, 5u);
    AENC_STREAM_HEADER_S second = {};
    EXPECT_EQ(HI_MPI_AENC_GetStream(3, &second, 1), aenc(MPP_ERR_NOT_PERM)) << "one is out";
    EXPECT_EQ(HI_MPI_AENC_SendFrame(3, &frames[2]), aenc(MPP_ERR_FULL)) << "its place is not free yet";
    EXPECT_EQ(first, std::vector<uint8_t>(stream.pu8Data, stream.pu8Data + stream.u32Len));

    AENC_STREAM_HEADER_S foreign = stream;
    foreign.u32Seq ^= 1;
    EXPECT_EQ(HI_MPI_AENC_ReleaseStream(3, &foreign), aenc(MPP_ERR_PARAM));
    EXPECT_EQ(HI_MPI_AENC_ReleaseStream(3, &stream), 0);
    EXPECT_EQ(HI_MPI_AENC_ReleaseStream(3, &stream), aenc(MPP_ERR_NOT_PERM)) << "given back twice";
    EXPECT_EQ(HI_MPI_AENC_SendFrame(3, &frames[2]), 0);
    for (uint32_t number : {1u, 2u}) {
        ASSERT_EQ(HI_MPI_AENC_GetStream(3, &stream, 0), 0);
        EXPECT_EQ(stream.u32Seq, number);
        EXPECT_EQ(stream.u64TimeStamp, number == 1 ? 1ull << 40 : 0);
        EXPECT_EQ(HI_MPI_AENC_ReleaseStream(3, &stream), 0);
    }
    const AENC_CHN_STAT_S stat = aenc_stat(3);
    EXPECT_EQ(stat.u32Encoded, 3u);
    EXPECT_EQ(stat.u32Handed, 3u);
    EXPECT_EQ(stat.u32Refused, 2u);
    EXPECT_EQ(stat.u32Waiting, 0u);
}

TEST_F(Aenc, ABoundInputIsFetchedFromEncodedAndReleased)
{
    ASSERT_EQ(create_aenc(0, PT_LPCM), 0);
    int32_t answer = 0;
    bound_input.take = [&](AUDIO_FRAME_S& out, uint32_t) {
        out = frame;
        return answer;
    };
    ASSERT_EQ(HI_MPI_AENC_GetStream(0, &stream, 1), 0);
    EXPECT_EQ(stream.u32Len, 320u);
    EXPECT_EQ(stream.u64TimeStamp, 0x123456789u);
    EXPECT_EQ(bound_input.out, 0);
    EXPECT_EQ(HI_MPI_AENC_ReleaseStream(0, &stream), 0);

    const std::pair<int32_t, int32_t> refusals[] = {
        {MPP_ERROR(HI_ID_AI, MPP_ERR_EMPTY), aenc(MPP_ERR_EMPTY)},
        {-1, -1},
        {MPP_ERROR(HI_ID_AI, MPP_ERR_REFUSED), MPP_ERROR(HI_ID_AI, MPP_ERR_REFUSED)},
    };
    for (const auto& [from_input, expected] : refusals) {
        answer = from_input;
        EXPECT_EQ(HI_MPI_AENC_GetStream(0, &stream, 0), expected);
    }
    answer = 0;
    frame.u32Len = 3; // no codec takes that
    EXPECT_EQ(HI_MPI_AENC_GetStream(0, &stream, 1), aenc(MPP_ERR_PARAM));
    EXPECT_EQ(bound_input.out, 0) << "a frame that cannot be encoded goes back too";
    bound_input.take = nullptr;
    EXPECT_EQ(HI_MPI_AENC_GetStream(0, &stream, 0), aenc(MPP_ERR_EMPTY)) << "unbound in mid-stream";
}

TEST_F(Aenc, AWaitingCallerLeavesWhenTheChannelGoesEvenIfItIsMadeAgain)
{
    ASSERT_EQ(create_aenc(0, PT_G711U), 0);
    std::atomic<bool> left = false;
    std::thread waiting([&] {
        EXPECT_EQ(HI_MPI_AENC_GetStream(0, &stream, 1), aenc(MPP_ERR_MISSING));
        left = true;
    });
    while (!left) { // until the thread was seen waiting, however late it starts
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(HI_MPI_AENC_DestroyChn(0), 0);
        EXPECT_EQ(create_aenc(0, PT_G711U), 0);
    }
    waiting.join();
}

// Whoever waits comes back with a frame: the one that woke it may have gone to another meanwhile.
TEST_F(Aenc, CallersWaitSideBySideForOneFrameEach)
{
    constexpr int kFrames = 500;
    ASSERT_EQ(create_aenc(0, PT_G711U), 0);
    std::atomic<int> taken = 0, empty = 0;
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i)
        callers.emplace_back([&] {
            while (true) {
                AENC_STREAM_HEADER_S mine = {};
                const int32_t result = HI_MPI_AENC_GetStream(0, &mine, 1);
                if (result == aenc(MPP_ERR_MISSING)) return;
                if (result == aenc(MPP_ERR_EMPTY)) ++empty;
                if (result == 0 && HI_MPI_AENC_ReleaseStream(0, &mine) == 0) ++taken;
                if (result == aenc(MPP_ERR_NOT_PERM)) std::this_thread::yield();
            }
        });
    for (int sent = 0; sent < kFrames; std::this_thread::yield())
        sent += HI_MPI_AENC_SendFrame(0, &frame) == 0;
    while (taken < kFrames) std::this_thread::yield();
    EXPECT_EQ(HI_MPI_AENC_DestroyChn(0), 0);
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(taken, kFrames);
    EXPECT_EQ(empty, 0) << "returned from waiting without a frame";
}

TEST_F(Aenc, AFrameThatArrivesForAChannelThatIsGoneIsReleased)
{
    ASSERT_EQ(create_aenc(0, PT_G711U), 0);
    std::atomic<bool> inside = false, go_on = false;
    bound_input.take = [&](AUDIO_FRAME_S& out, uint32_t block) {
        inside = true;
        go_on.wait(false);
        out = frame;
        return block == 1 ? 0 : -1;
    };
    int32_t result = 0;
    std::thread waiting([&] { result = HI_MPI_AENC_GetStream(0, &stream, 1); });
    while (!inside) std::this_thread::yield();
    EXPECT_EQ(HI_MPI_AENC_DestroyChn(0), 0) << "does not wait for the input";
    EXPECT_EQ(create_aenc(0, PT_LPCM), 0);
    go_on = true;
    go_on.notify_all();
    waiting.join();
    EXPECT_EQ(result, aenc(MPP_ERR_MISSING));
    EXPECT_EQ(bound_input.out, 0);
    EXPECT_EQ(aenc_stat().u32Encoded, 0u) << "the frame was the old channel's";
}

// A registered codec that says more than it may.
uint32_t lying_length = 0;
int lying_open = 0;

TEST_F(Aenc, ARegisteredCodecIsBelievedOnlyAsFarAsItsRoomGoes)
{
    AENC_ENCODER_S codec = {77, 100, "lying", nullptr, nullptr, nullptr};
    codec.pfnOpenEncoder = [](void*, void**) { return ++lying_open, 0; };
    codec.pfnEncodeFrm = [](void*, const AUDIO_FRAME_S*, uint8_t*, uint32_t* length) {
        *length = lying_length;
        return 0;
    };
    codec.pfnCloseEncoder = [](void*) { return --lying_open, 0; };
    int32_t handle = -1;
    ASSERT_EQ(HI_MPI_AENC_RegeisterEncoder(&handle, &codec), 0);
    ASSERT_EQ(create_aenc(0, 77), 0);
    lying_length = 101;
    EXPECT_EQ(HI_MPI_AENC_SendFrame(0, &frame), aenc(MPP_ERR_PARAM));
    lying_length = 100;
    EXPECT_EQ(HI_MPI_AENC_SendFrame(0, &frame), 0);
    EXPECT_EQ(lying_open, 1);
    EXPECT_EQ(MPI_AENC_DeInit(), 0);
    EXPECT_EQ(lying_open, 0) << "stopping closes the codec of a channel that was left";
    EXPECT_EQ(MPI_AENC_Init(), 0);
    for (uint32_t longest : {0u, 0x10001u, UINT32_MAX}) {
        codec.enType = int32_t(100 + longest % 100);
        codec.u32MaxFrmLen = longest;
        ASSERT_EQ(HI_MPI_AENC_RegeisterEncoder(&handle, &codec), 0);
        EXPECT_EQ(create_aenc(0, codec.enType), aenc(MPP_ERR_PARAM)) << longest;
    }
    EXPECT_EQ(lying_open, 0);
}

} // namespace
