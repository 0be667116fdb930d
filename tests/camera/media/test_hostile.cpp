// Drivers whose answers are wrong: numbers that would be used as an index, a length or an address.
#include "tests/camera/media/media.hpp"

#include <cstddef>

namespace {

struct Hostile : Platform {};

constexpr int32_t kAi = MPP_ERROR(HI_ID_AI, 0), kVb = MPP_ERROR(HI_ID_VB, 0);

// A record's word as the plan counts them.
#define WORD(RECORD, FIELD) std::to_string(offsetof(RECORD, FIELD) / 4)

string lie(const char* request, const string& word, uint32_t value)
{
    return string(request) + " 0 1 word" + word + "=" + std::to_string(value) + "\n";
}

int32_t get(AUDIO_FRAME_S* frame = nullptr, AEC_FRAME_S* aec = nullptr)
{
    AUDIO_FRAME_S own = {};
    return HI_MPI_AI_GetFrame(kDev, 0, frame ? frame : &own, aec, 1);
}

} // namespace

TEST_F(Hostile, APoolNumberIsCheckedBeforeItIsAnIndex)
{
    const AIO_ATTR_S attr = attributes();
    ASSERT_EQ(HI_MPI_AI_SetPubAttr(kDev, &attr), 0);
    for (uint32_t pool : {128u, 0x7FFFFFFFu, UINT32_MAX}) {
        faults(lie("ai getpool", "0", pool));
        EXPECT_EQ(HI_MPI_AI_Enable(kDev), kVb | 3) << pool;
    }
    faults("");
    EXPECT_EQ(HI_MPI_AI_Enable(kDev), 0);
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), 0);
}

TEST_F(Hostile, AFramesLengthPoolAndAddressesAreCheckedBeforeASampleIsTouched)
{
    open_input(attributes());
    ASSERT_EQ(HI_MPI_AI_EnableAec(kDev, 0, kDev, 0), 0);
    const struct {
        string word;
        uint32_t value;
        int32_t code;
    } rows[] = {
        {WORD(AI_EXCHANGE_S, stFrame.u32Len), 4098, kAi | 3},
        {WORD(AI_EXCHANGE_S, stFrame.u32Len), UINT32_MAX, kAi | 3},
        {WORD(AI_EXCHANGE_S, stFrame.s32PoolId), 128, kVb | 3},
        {WORD(AI_EXCHANGE_S, stFrame.s32PoolId), UINT32_MAX, kVb | 3},
        {WORD(AI_EXCHANGE_S, stFrame.s32PoolId), 5, kVb | 0x10},
        {WORD(AI_EXCHANGE_S, stFrame.u32PhysAddr), 0x8BFFFFFF, kVb | 3},
        {WORD(AI_EXCHANGE_S, stFrame.u32PhysAddr), 0xFFFFFFF0, kVb | 3},
        {WORD(AI_EXCHANGE_S, stFrame.u32PhysAddr), 0, kVb | 3},
        {WORD(AI_EXCHANGE_S, stFrame.u32SoundMode), AUDIO_SOUND_STEREO, kVb | 3}, // no right block
        {WORD(AI_EXCHANGE_S, stAec.bValid), 1, kVb | 3},                          // no reference behind it
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("word " + row.word + " = " + std::to_string(row.value));
        faults("ai getframe 0 1 word" + row.word + "=" + std::to_string(row.value) + "\n");
        EXPECT_EQ(uint32_t(get()), uint32_t(row.code));
    }
    faults("");
    AUDIO_FRAME_S frame = {};
    EXPECT_EQ(get(&frame), 0);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
}

// A frame of another length than the noise reducer was made for, and one too long to be widened in place.
TEST_F(Hostile, AStageRefusesAFrameThatItWasNotMadeFor)
{
    open_input(attributes());
    ASSERT_EQ(HI_MPI_AI_EnableAnr(kDev, 0), 0);
    for (uint32_t length : {0u, 2u, 318u, 322u, 4096u}) {
        faults(lie("ai getframe", WORD(AI_EXCHANGE_S, stFrame.u32Len), length));
        EXPECT_EQ(get(), kAi | 3) << length;
    }
    const string narrow = "ai getframe 0 1 word0=0\n"; // the bit width
    faults(narrow);
    EXPECT_EQ(get(), kAi | 3) << "320 bytes of 8 bits are not 160 points";
    ASSERT_EQ(HI_MPI_AI_DisableAnr(kDev, 0), 0);
    const AIO_RESAMPLE_ATTR_S up = {160, 8000, 5};
    ASSERT_EQ(HI_MPI_AI_EnableReSmp(kDev, 0, &up), 0);
    faults(lie("ai getframe", WORD(AI_EXCHANGE_S, stFrame.u32Len), 4096));
    AUDIO_FRAME_S frame = {};
    ASSERT_EQ(get(&frame), 0);
    EXPECT_EQ(frame.u32Len, 6 * 4096u);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
}

// A device that was mono when the stage was enabled: the stage works on one block, and its length is not the
// other's.
TEST_F(Hostile, AStageRefusesStereoThatCameLater)
{
    const AIO_ATTR_S mono = attributes(), stereo = attributes(8000, 160, AUDIO_SOUND_STEREO);
    const AIO_RESAMPLE_ATTR_S up = {160, 8000, 5};
    ASSERT_EQ(HI_MPI_AI_SetPubAttr(kDev, &mono), 0);
    ASSERT_EQ(HI_MPI_AI_EnableReSmp(kDev, 0, &up), 0);
    open_input(stereo);
    EXPECT_EQ(get(), kAi | 3);
    ASSERT_EQ(HI_MPI_AI_DisableReSmp(kDev, 0), 0);
    AUDIO_FRAME_S frame = {};
    ASSERT_EQ(get(&frame), 0);
    EXPECT_NE(frame.pu8VirtAddr[1], nullptr);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), 0) << "the refused frame was given back";
}

TEST_F(Hostile, APoolThatIsNotInMemoryIsNotMapped)
{
    const uint32_t pool = HI_MPI_VB_CreatePool(4096, 2);
    for (const string& answer : {lie("vb poolinfo", "1", 0), lie("vb poolinfo", "1", UINT32_MAX),
                                 lie("vb poolinfo", "2", 0xFFFFF000), lie("vb poolinfo", "2", 0x7FFFFFFF)}) {
        faults(answer);
        EXPECT_EQ(HI_MPI_VB_MmapPool(pool), kVb | 0xC) << answer;
    }
    faults("vb poolinfo 0 1 EIO\n");
    EXPECT_EQ(HI_MPI_VB_MmapPool(pool), -1);
    faults("mem mmap 0 1 EPERM\n");
    EXPECT_EQ(HI_MPI_VB_MmapPool(pool), kVb | 0xC);
    faults("");
    EXPECT_EQ(HI_MPI_VB_MmapPool(pool), 0);
}
