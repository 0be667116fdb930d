// Each operation's way to its driver: what a driver's refusal becomes, and that one call is one request.
#include "tests/camera/media/media.hpp"

#include "mpi/src/mpi_adec.h"
#include "mpi/src/mpi_aenc.h"

#include <functional>

namespace {

struct Requests : Platform {};

constexpr int32_t kAi = MPP_ERROR(HI_ID_AI, 0), kAo = MPP_ERROR(HI_ID_AO, 0), kSys = MPP_ERROR(HI_ID_SYS, 0);
constexpr int32_t kOwnCode = int32_t(0xA0338123); // a code that no library gives by itself

struct Row {
    const char* request; // device and name in the fault plan
    std::function<int32_t()> call;
    int32_t with_code, with_errno; // what the operation returns then
};

AIO_ATTR_S attr = attributes();
AUDIO_FRAME_S frame;
MPP_CHN_S input = {HI_ID_AI, kDev, 0}, encoder = {HI_ID_AENC, 0, 0}, found;
AI_CHN_PARAM_S param;
VB_CONF_S conf;
MPP_SYS_CONF_S sys_conf = {16};
SYS_DIE_ID_S die;
LOG_LEVEL_CONF_S level = {HI_ID_AI, 3, ""};
uint64_t pts;
uint32_t word;
uint8_t byte;
AIO_RESAMPLE_ATTR_S up = {160, 8000, 1};
Samples sound(160);

int32_t get_frame() { return HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 1); }
int32_t send_frame()
{
    frame = Platform::frame_of(sound);
    return HI_MPI_AO_SendFrame(kDev, 0, &frame, 1);
}

// In an order in which each call works when its driver does.
const Row kRows[] = {
    {"vb getconf", [] { return HI_MPI_VB_GetConf(&conf); }, kOwnCode, -1},
    {"vb createpool", [] { return int32_t(HI_MPI_VB_CreatePool(4096, 4)); }, -1, -1},
    {"vb inuse", [] { return HI_MPI_VB_MunmapPool(0); }, kOwnCode, -1},
    {"sys getconf", [] { return HI_MPI_SYS_GetConf(&sys_conf); }, kOwnCode, -1},
    {"sys setpts", [] { return HI_MPI_SYS_SetPtsBase(5); }, kOwnCode, -1},
    {"sys syncpts", [] { return HI_MPI_SYS_SyncPtsBase(5); }, kOwnCode, -1},
    {"sys getpts", [] { return HI_MPI_SYS_GetCurPts(&pts); }, kOwnCode, -1},
    {"sys customer", [] { return HI_MPI_SYS_GetCustomerId(&byte); }, kSys | 0x10, kSys | 0x10},
    {"sys die", [] { return HI_MPI_SYS_GetDieId(&die); }, kSys | 0x10, kSys | 0x10},
    {"sys virtreg", [] { return word = 0x20050000, HI_MPI_SYS_GetVirtRegAddr(&word); }, kSys | 0x10,
     kSys | 0x10},
    {"sys bind", [] { return HI_MPI_SYS_Bind(&input, &encoder); }, kOwnCode, -1},
    {"sys getbind", [] { return HI_MPI_SYS_GetBindByDest(&encoder, &found); }, kOwnCode, -1},
    {"sys unbind", [] { return HI_MPI_SYS_UnBind(&input, &encoder); }, kOwnCode, -1},
    {"log setlevel", [] { return HI_MPI_LOG_SetLevelConf(&level); }, kOwnCode, -1},
    {"log getlevel", [] { return HI_MPI_LOG_GetLevelConf(&level); }, kOwnCode, -1},
    {"log setwait", [] { return HI_MPI_LOG_SetWaitFlag(0); }, kOwnCode, -1},
    {"mmz flushall", [] { return HI_MPI_SYS_MmzFlushCache(0, nullptr, 0); }, kOwnCode, -1},
    {"mmz flush", [] { return HI_MPI_SYS_MmzFlushCache(0x8C000000, nullptr, 64); }, kOwnCode, -1},
    {"ai setattr", [] { return HI_MPI_AI_SetPubAttr(kDev, &attr); }, kOwnCode, -1},
    {"ai getattr", [] { return HI_MPI_AI_GetPubAttr(kDev, &attr); }, kOwnCode, -1},
    {"ai getattr", [] { return HI_MPI_AI_EnableReSmp(kDev, 1, &up); }, kAi | 7, kAi | 7},
    {"ai getattr", [] { return HI_MPI_AI_EnableAnr(kDev, 1); }, kAi | 7, kAi | 7},
    {"ai enable", [] { return HI_MPI_AI_Enable(kDev); }, kOwnCode, -1},
    {"ai getpool", [] { return HI_MPI_AI_Enable(kDev); }, kOwnCode, -1},
    {"ai enablechn", [] { return HI_MPI_AI_EnableChn(kDev, 0); }, kOwnCode, -1},
    {"ai setparam", [] { return HI_MPI_AI_SetChnParam(kDev, 0, &param); }, kOwnCode, -1},
    {"ai getparam", [] { return HI_MPI_AI_GetChnParam(kDev, 0, &param); }, kOwnCode, -1},
    {"ai enableaec", [] { return HI_MPI_AI_EnableAec(kDev, 0, kDev, 0); }, kOwnCode, -1},
    {"ai disableaec", [] { return HI_MPI_AI_DisableAec(kDev, 0); }, kOwnCode, -1},
    {"ai getframe", get_frame, kOwnCode, -1},
    {"ai release", [] { return HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr); }, kOwnCode, -1},
    {"ai disablechn", [] { return HI_MPI_AI_DisableChn(kDev, 0); }, kOwnCode, -1},
    {"ao setattr", [] { return HI_MPI_AO_SetPubAttr(kDev, &attr); }, kOwnCode, -1},
    {"ao getattr", [] { return HI_MPI_AO_GetPubAttr(kDev, &attr); }, kOwnCode, -1},
    {"ao enable", [] { return HI_MPI_AO_Enable(kDev); }, kOwnCode, -1},
    {"ao enablechn", [] { return HI_MPI_AO_EnableChn(kDev, 0); }, kOwnCode, -1},
    {"ao send", send_frame, kOwnCode, -1},
    {"ao pause", [] { return HI_MPI_AO_PauseChn(kDev, 0); }, kOwnCode, -1},
    {"ao resume", [] { return HI_MPI_AO_ResumeChn(kDev, 0); }, kOwnCode, -1},
    {"ao clear", [] { return HI_MPI_AO_ClearChnBuf(kDev, 0); }, kOwnCode, -1},
    {"ao disablechn", [] { return HI_MPI_AO_DisableChn(kDev, 0); }, kOwnCode, -1},
    {"ao disable", [] { return HI_MPI_AO_Disable(kDev); }, kOwnCode, -1},
};

string complaint(const std::function<void()>& action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

} // namespace

// For each: the driver's own code, then an errno, then success, which shows that neither left a trace.
TEST_F(Requests, ARefusalByTheDriverComesBackAndChangesNothing)
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
TEST_F(Requests, TheWayDownFollowsTheWayUp)
{
    open_input(attributes());
    ASSERT_EQ(HI_MPI_AI_DisableChn(kDev, 0), 0);
    faults("ai disable 0 1 EIO\n");
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), -1);
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), 0);
    faults("vb init 0 1 EIO\nvb exit 0 1 EIO\nsys init 0 1 0xA0028010\nsys exit 0 1 EIO\n");
    EXPECT_EQ(HI_MPI_SYS_Exit(), -1);
    EXPECT_EQ(HI_MPI_SYS_Exit(), 0);
    EXPECT_EQ(HI_MPI_VB_Exit(), -1);
    EXPECT_EQ(HI_MPI_VB_Exit(), 0);
    EXPECT_EQ(HI_MPI_VB_Init(), -1);
    EXPECT_EQ(HI_MPI_VB_Init(), 0);
    EXPECT_EQ(HI_MPI_SYS_Init(), kSys | 0x10);
    EXPECT_EQ(HI_MPI_SYS_Init(), 0);
}

TEST_F(Requests, AMemoryZoneSaysWhichStepFailed)
{
    uint32_t physical = 0;
    void* address = nullptr;
    const auto allocate = [&] { return HI_MPI_SYS_MmzAlloc(&physical, &address, "block", nullptr, 8192); };
    const auto cached = [&] {
        return HI_MPI_SYS_MmzAllocCached(&physical, &address, nullptr, nullptr, 8192);
    };
    const auto release = [&] { return HI_MPI_SYS_MmzFree(physical); };
    const auto step = [](const char* plan, const auto& call) {
        faults(plan);
        int32_t result = 0;
        const string said = complaint([&] { result = call(); });
        faults("");
        return std::to_string(result) + " " + said;
    };
    EXPECT_EQ(step("mmz alloc 0 1 ENOMEM\n", allocate), "-1 System alloc mmz memory failed!\n");
    EXPECT_EQ(step("mmz map 0 1 ENOMEM\n", allocate), "-1 System remap mmz memory failed!\n");
    EXPECT_EQ(step("mmz mapcached 0 1 ENOMEM\n", cached), "-1 System remap mmz memory failed!\n");
    ASSERT_EQ(allocate(), 0);
    EXPECT_EQ(physical, 0x8C004000u) << "behind the two blocks whose mapping failed";
    EXPECT_EQ(step("mmz unmap 0 1 EIO\n", release), "-1 System unmap mmz memory failed!\n");
    EXPECT_EQ(step("mmz free 0 1 EIO\n", release), "-1 System free mmz memory failed!\n");
    EXPECT_EQ(step("", release), "-1 System unmap mmz memory failed!\n") << "it is no longer mapped";
}

TEST_F(Requests, AFailedOpenIsItsErrnoOrTheModulesCode)
{
    ASSERT_EQ(HI_MPI_SYS_CloseFd(), 0);
    faults("sys open 0 1 ENODEV\nlog open 0 1 ENOENT\nmem open 0 1 EACCES\n");
    EXPECT_EQ(complaint([] { EXPECT_EQ(HI_MPI_SYS_GetCurPts(&pts), ENODEV); }), "open sys: No such device\n");
    EXPECT_EQ(complaint([] { EXPECT_EQ(HI_MPI_LOG_SetWaitFlag(0), ENOENT); }),
              "open: No such file or directory\n");
    EXPECT_EQ(complaint([] { EXPECT_EQ(HI_MPI_SYS_Mmap(0x10070000, 4), nullptr); }),
              "Open dev/mem error: Permission denied\n");
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
