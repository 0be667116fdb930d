// Each operation's way to its driver: what a refusal becomes, and answers that would be used as an index, a length or
// an address and are wrong.
#include "tests/camera/media/media.hpp"

#include <cstddef>
#include <functional>

namespace drivers_test {
namespace {

using Drivers = Platform;

constexpr int32_t kOwnCode = int32_t(0xA0338123); // a code that no library gives by itself

AIO_ATTR_S attr = attributes();
AUDIO_FRAME_S frame;
MPP_CHN_S source = input(), encoder = {HI_ID_AENC, 0, 0}, found;
AI_CHN_PARAM_S param;
VB_CONF_S conf;
MPP_SYS_CONF_S sys_conf = {16};
SYS_DIE_ID_S die;
LOG_LEVEL_CONF_S level = {HI_ID_AI, 3, ""};
uint64_t pts;
uint32_t word;
uint8_t byte;
AIO_RESAMPLE_ATTR_S up = {160, 8000, 1};

struct Row {
    const char* request; // device and name in the fault plan
    std::function<int32_t()> call;
    int32_t with_code = kOwnCode, with_errno = -1; // what the operation returns then
};
// In an order in which each call works when its driver does.
const Row kRows[] = {
    {"vb getconf", [] { return HI_MPI_VB_GetConf(&conf); }},
    {"vb createpool", [] { return int32_t(HI_MPI_VB_CreatePool(4096, 4)); }, -1},
    {"vb inuse", [] { return HI_MPI_VB_MunmapPool(0); }},
    {"sys getconf", [] { return HI_MPI_SYS_GetConf(&sys_conf); }},
    {"sys setpts", [] { return HI_MPI_SYS_SetPtsBase(5); }},
    {"sys syncpts", [] { return HI_MPI_SYS_SyncPtsBase(5); }},
    {"sys getpts", [] { return HI_MPI_SYS_GetCurPts(&pts); }},
    {"sys customer", [] { return HI_MPI_SYS_GetCustomerId(&byte); }, kSys | 0x10, kSys | 0x10},
    {"sys die", [] { return HI_MPI_SYS_GetDieId(&die); }, kSys | 0x10, kSys | 0x10},
    {"sys virtreg", [] { return word = 0x20050000, HI_MPI_SYS_GetVirtRegAddr(&word); }, kSys | 0x10,
     kSys | 0x10},
    {"sys bind", [] { return HI_MPI_SYS_Bind(&source, &encoder); }},
    {"sys getbind", [] { return HI_MPI_SYS_GetBindByDest(&encoder, &found); }},
    {"sys unbind", [] { return HI_MPI_SYS_UnBind(&source, &encoder); }},
    {"log setlevel", [] { return HI_MPI_LOG_SetLevelConf(&level); }},
    {"log getlevel", [] { return HI_MPI_LOG_GetLevelConf(&level); }},
    {"log setwait", [] { return HI_MPI_LOG_SetWaitFlag(0); }},
    {"mmz flushall", [] { return HI_MPI_SYS_MmzFlushCache(0, nullptr, 0); }},
    {"mmz flush", [] { return HI_MPI_SYS_MmzFlushCache(0x8C000000, nullptr, 64); }},
    {"ai setattr", [] { return HI_MPI_AI_SetPubAttr(kDev, &attr); }},
    {"ai getattr", [] { return HI_MPI_AI_GetPubAttr(kDev, &attr); }},
    {"ai getattr", [] { return HI_MPI_AI_EnableReSmp(kDev, 1, &up); }, kAi | 7, kAi | 7},
    {"ai getattr", [] { return HI_MPI_AI_EnableAnr(kDev, 1); }, kAi | 7, kAi | 7},
    {"ai enable", [] { return HI_MPI_AI_Enable(kDev); }},
    {"ai getpool", [] { return HI_MPI_AI_Enable(kDev); }},
    {"ai enablechn", [] { return HI_MPI_AI_EnableChn(kDev, 0); }},
    {"ai setparam", [] { return HI_MPI_AI_SetChnParam(kDev, 0, &param); }},
    {"ai getparam", [] { return HI_MPI_AI_GetChnParam(kDev, 0, &param); }},
    {"ai enableaec", [] { return HI_MPI_AI_EnableAec(kDev, 0, kDev, 0); }},
    {"ai disableaec", [] { return HI_MPI_AI_DisableAec(kDev, 0); }},
    {"ai getframe", [] { return Platform::get(frame); }},
    {"ai release", [] { return Platform::release(frame); }},
    {"ai disablechn", [] { return HI_MPI_AI_DisableChn(kDev, 0); }},
    {"ao setattr", [] { return HI_MPI_AO_SetPubAttr(kDev, &attr); }},
    {"ao getattr", [] { return HI_MPI_AO_GetPubAttr(kDev, &attr); }},
    {"ao enable", [] { return HI_MPI_AO_Enable(kDev); }},
    {"ao enablechn", [] { return HI_MPI_AO_EnableChn(kDev, 0); }},
    {"ao send", [] { return Platform::send(Samples(160)); }},
    {"ao pause", [] { return HI_MPI_AO_PauseChn(kDev, 0); }},
    {"ao resume", [] { return HI_MPI_AO_ResumeChn(kDev, 0); }},
    {"ao clear", [] { return HI_MPI_AO_ClearChnBuf(kDev, 0); }},
    {"ao disablechn", [] { return HI_MPI_AO_DisableChn(kDev, 0); }},
    {"ao disable", [] { return HI_MPI_AO_Disable(kDev); }},
};

// For each: the driver's own code, then an errno, then success, which shows that neither left a trace.
TEST_F(Drivers, ARefusalComesBackAndChangesNothing)
{
    ASSERT_EQ(HI_MPI_VB_CreatePool(4096, 4), 0u);
    ASSERT_EQ(HI_MPI_VB_MmapPool(0), 0);
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.request);
        faults(string(row.request) + " 0 1 0xA0338123\n");
        EXPECT_EQ(uint32_t(row.call()), uint32_t(row.with_code));
        faults(string(row.request) + " 0 1 EIO\n");
        EXPECT_EQ(row.call(), row.with_errno);
        faults("");
        EXPECT_GE(row.call(), 0);
    }
}

// After a refused enable of the device its pool is known again, and the way down works.
TEST_F(Drivers, TheWayDownFollowsTheWayUp)
{
    open_input(attributes());
    ASSERT_EQ(HI_MPI_AI_DisableChn(kDev, 0), 0);
    faults("ai disable 0 1 EIO\n");
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), -1);
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), 0);
    faults("vb init 0 1 EIO\nvb exit 0 1 EIO\nsys init 0 1 0xA0028010\nsys exit 0 1 EIO\n");
    const std::tuple<int32_t (*)(), int32_t> steps[] = {
        {HI_MPI_SYS_Exit, -1}, {HI_MPI_VB_Exit, -1}, {HI_MPI_VB_Init, -1}, {HI_MPI_SYS_Init, kSys | 0x10}};
    for (const auto& [step, refusal] : steps) {
        EXPECT_EQ(step(), refusal);
        EXPECT_EQ(step(), 0);
    }
}

TEST_F(Drivers, AMemoryZoneSaysWhichStepFailed)
{
    uint32_t physical = 0;
    void* address = nullptr;
    const auto allocate = [&] { return HI_MPI_SYS_MmzAlloc(&physical, &address, "block", nullptr, 8192); };
    const auto cached = [&] {
        return HI_MPI_SYS_MmzAllocCached(&physical, &address, nullptr, nullptr, 8192);
    };
    const auto release_it = [&] { return HI_MPI_SYS_MmzFree(physical); };
    const Complaints complaints;
    const auto step = [&](const char* plan, const auto& call) {
        faults(plan);
        EXPECT_EQ(call(), -1);
        faults("");
        return complaints.said();
    };
    EXPECT_EQ(step("mmz alloc 0 1 ENOMEM\n", allocate), "System alloc mmz memory failed!\n");
    EXPECT_EQ(step("mmz map 0 1 ENOMEM\n", allocate), "System remap mmz memory failed!\n");
    EXPECT_EQ(step("mmz mapcached 0 1 ENOMEM\n", cached), "System remap mmz memory failed!\n");
    ASSERT_EQ(allocate(), 0);
    EXPECT_EQ(physical, 0x8C004000u) << "behind the two blocks whose mapping failed";
    EXPECT_EQ(step("mmz unmap 0 1 EIO\n", release_it), "System unmap mmz memory failed!\n");
    EXPECT_EQ(step("mmz free 0 1 EIO\n", release_it), "System free mmz memory failed!\n");
    EXPECT_EQ(step("", release_it), "System unmap mmz memory failed!\n") << "it is no longer mapped";
}

TEST_F(Drivers, AFailedOpenIsItsErrnoOrTheModulesCode)
{
    ASSERT_EQ(HI_MPI_SYS_CloseFd(), 0);
    faults("sys open 0 1 ENODEV\nlog open 0 1 ENOENT\nmem open 0 1 EACCES\n");
    {
        const Complaints complaints;
        EXPECT_EQ(HI_MPI_SYS_GetCurPts(&pts), ENODEV);
        EXPECT_EQ(HI_MPI_LOG_SetWaitFlag(0), ENOENT);
        EXPECT_EQ(HI_MPI_SYS_Mmap(0x10070000, 4), nullptr);
        EXPECT_EQ(complaints.said(), "open sys: No such device\nopen: No such file or directory\n"
                                     "Open dev/mem error: Permission denied\n");
    }
    // Slots that no test has opened yet: a refused slot closes the descriptor, so the next try opens again.
    faults("ai open 0 1 ENODEV\nai bindslot 0 1 EIO\nao open 0 1 ENODEV\nao bindslot 0 1 EIO\n");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(HI_MPI_AI_GetFd(1, 7), kAi | 0x10);
        EXPECT_EQ(HI_MPI_AO_GetFd(1, 7), kAo | 0x10);
    }
    const int fd = HI_MPI_AI_GetFd(1, 7);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(HI_MPI_AI_GetFd(1, 7), fd);
    EXPECT_GE(HI_MPI_AO_GetFd(1, 7), 0);
}

// A plan line that changes one word of a record, which is counted in words there.
string lie(const string& request, size_t offset, uint32_t value)
{
    return request + " 0 1 word" + std::to_string(offset / 4) + "=" + std::to_string(value) + "\n";
}

TEST_F(Drivers, APoolNumberIsCheckedBeforeItIsAnIndexAndAPoolBeforeItIsMapped)
{
    ASSERT_EQ(HI_MPI_AI_SetPubAttr(kDev, &attr), 0);
    for (uint32_t pool : {128u, 0x7FFFFFFFu, UINT32_MAX}) {
        faults(lie("ai getpool", 0, pool));
        EXPECT_EQ(HI_MPI_AI_Enable(kDev), kVb | 3) << pool;
    }
    faults("");
    EXPECT_EQ(HI_MPI_AI_Enable(kDev), 0);
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), 0);

    const uint32_t pool = HI_MPI_VB_CreatePool(4096, 2);
    const std::pair<string, int32_t> answers[] = {
        {lie("vb poolinfo", 4, 0), kVb | 0xC},
        {lie("vb poolinfo", 4, UINT32_MAX), kVb | 0xC},
        {lie("vb poolinfo", 8, 0xFFFFF000), kVb | 0xC},
        {lie("vb poolinfo", 8, 0x7FFFFFFF), kVb | 0xC},
        {"vb poolinfo 0 1 EIO\n", -1},
        {"mem mmap 0 1 EPERM\n", kVb | 0xC},
        {"", 0},
    };
    for (const auto& [answer, code] : answers) {
        faults(answer);
        EXPECT_EQ(HI_MPI_VB_MmapPool(pool), code) << answer;
    }
}

// With a reference, for the noise reducer, which was made for 160 points, and for the resampler; and stereo from a device
// that was mono when the stage was enabled.
TEST_F(Drivers, AFramesWordsAreCheckedBeforeASampleIsTouched)
{
    const size_t length = offsetof(AI_EXCHANGE_S, stFrame.u32Len),
                 pool = offsetof(AI_EXCHANGE_S, stFrame.s32PoolId),
                 address = offsetof(AI_EXCHANGE_S, stFrame.u32PhysAddr), width = 0,
                 mode = offsetof(AI_EXCHANGE_S, stFrame.u32SoundMode),
                 valid = offsetof(AI_EXCHANGE_S, stAec.bValid);
    const AIO_RESAMPLE_ATTR_S by6 = {160, 8000, 5};
    open_input(attributes());
    const auto expect = [](size_t offset, std::initializer_list<uint32_t> values, int32_t code) {
        for (uint32_t value : values) {
            faults(lie("ai getframe", offset, value));
            EXPECT_EQ(get(frame), code) << offset << " = " << value;
        }
        faults("");
    };
    ASSERT_EQ(HI_MPI_AI_EnableAec(kDev, 0, kDev, 0), 0);
    expect(length, {4098, UINT32_MAX}, kAi | 3);
    expect(pool, {128, UINT32_MAX}, kVb | 3);
    expect(pool, {5}, kVb | 0x10);
    expect(address, {0x8BFFFFFF, 0xFFFFFFF0, 0}, kVb | 3);
    expect(mode, {AUDIO_SOUND_STEREO}, kVb | 3); // no right block
    expect(valid, {1}, kVb | 3);                 // no reference behind it
    EXPECT_EQ(get(frame), 0);
    EXPECT_EQ(release(frame), 0);
    ASSERT_EQ(HI_MPI_AI_DisableAec(kDev, 0), 0);

    ASSERT_EQ(HI_MPI_AI_EnableAnr(kDev, 0), 0);
    expect(length, {0, 2, 318, 322, 4096}, kAi | 3);
    expect(width, {AUDIO_BIT_WIDTH_8}, kAi | 3); // 320 bytes are then not 160 points
    ASSERT_EQ(HI_MPI_AI_DisableAnr(kDev, 0), 0);
    ASSERT_EQ(HI_MPI_AI_EnableReSmp(kDev, 0, &by6), 0);
    expect(length, {4096}, 0);
    EXPECT_EQ(frame.u32Len, 6 * 4096u);
    EXPECT_EQ(release(frame), 0);

    start_platform();
    ASSERT_EQ(HI_MPI_AI_SetPubAttr(kDev, &attr), 0);
    ASSERT_EQ(HI_MPI_AI_EnableReSmp(kDev, 0, &by6), 0);
    open_input(attributes(8000, 160, AUDIO_SOUND_STEREO));
    EXPECT_EQ(get(frame), kAi | 3);
    ASSERT_EQ(HI_MPI_AI_DisableReSmp(kDev, 0), 0);
    ASSERT_EQ(get(frame), 0);
    EXPECT_NE(frame.pu8VirtAddr[1], nullptr);
    EXPECT_EQ(release(frame), 0);
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), 0) << "the refused frame was given back";
}

} // namespace
} // namespace drivers_test
