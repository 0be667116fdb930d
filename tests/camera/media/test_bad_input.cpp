// What callers can do wrong, by table.
#include "tests/camera/media/media.hpp"

#include "mpi/src/mpi_adec.h"
#include "mpi/src/mpi_aenc.h"

#include <climits>
#include <span>

namespace {

struct BadInput : Platform {};

constexpr int32_t kAi = MPP_ERROR(HI_ID_AI, 0), kAo = MPP_ERROR(HI_ID_AO, 0), kVb = MPP_ERROR(HI_ID_VB, 0),
                  kSys = MPP_ERROR(HI_ID_SYS, 0);

AIO_ATTR_S attr = attributes();
AIO_RESAMPLE_ATTR_S up = {160, 8000, 1};
AI_CHN_PARAM_S param;
Samples sound(160);
AUDIO_FRAME_S silence = Platform::frame_of(sound), out;

struct OnChannel {
    const char* name;
    int32_t (*call)(int32_t device, int32_t channel);
};
constexpr OnChannel kInput[] = {
    {"EnableChn", HI_MPI_AI_EnableChn},
    {"DisableChn", HI_MPI_AI_DisableChn},
    {"EnableReSmp", [](int32_t d, int32_t c) { return HI_MPI_AI_EnableReSmp(d, c, &up); }},
    {"DisableReSmp", HI_MPI_AI_DisableReSmp},
    {"EnableAnr", HI_MPI_AI_EnableAnr},
    {"DisableAnr", HI_MPI_AI_DisableAnr},
    {"EnableAec", [](int32_t d, int32_t c) { return HI_MPI_AI_EnableAec(d, c, 0, 0); }},
    {"DisableAec", HI_MPI_AI_DisableAec},
    {"SetChnParam", [](int32_t d, int32_t c) { return HI_MPI_AI_SetChnParam(d, c, &param); }},
    {"GetChnParam", [](int32_t d, int32_t c) { return HI_MPI_AI_GetChnParam(d, c, &param); }},
    {"GetFrame", [](int32_t d, int32_t c) { return HI_MPI_AI_GetFrame(d, c, &out, nullptr, 0); }},
    {"ReleaseFrame", [](int32_t d, int32_t c) { return HI_MPI_AI_ReleaseFrame(d, c, &out, nullptr); }},
    {"GetFd", HI_MPI_AI_GetFd},
};
constexpr OnChannel kOutput[] = {
    {"EnableChn", HI_MPI_AO_EnableChn},
    {"DisableChn", HI_MPI_AO_DisableChn},
    {"PauseChn", HI_MPI_AO_PauseChn},
    {"ResumeChn", HI_MPI_AO_ResumeChn},
    {"ClearChnBuf", HI_MPI_AO_ClearChnBuf},
    {"EnableReSmp", [](int32_t d, int32_t c) { return HI_MPI_AO_EnableReSmp(d, c, &up); }},
    {"DisableReSmp", HI_MPI_AO_DisableReSmp},
    {"SendFrame", [](int32_t d, int32_t c) { return HI_MPI_AO_SendFrame(d, c, &silence, 0); }},
    {"GetFd", HI_MPI_AO_GetFd},
};
constexpr OnChannel kInputDevice[] = {
    {"SetPubAttr", [](int32_t d, int32_t) { return HI_MPI_AI_SetPubAttr(d, &attr); }},
    {"GetPubAttr", [](int32_t d, int32_t) { return HI_MPI_AI_GetPubAttr(d, &attr); }},
    {"Enable", [](int32_t d, int32_t) { return HI_MPI_AI_Enable(d); }},
    {"Disable", [](int32_t d, int32_t) { return HI_MPI_AI_Disable(d); }},
};
constexpr OnChannel kOutputDevice[] = {
    {"SetPubAttr", [](int32_t d, int32_t) { return HI_MPI_AO_SetPubAttr(d, &attr); }},
    {"GetPubAttr", [](int32_t d, int32_t) { return HI_MPI_AO_GetPubAttr(d, &attr); }},
    {"Enable", [](int32_t d, int32_t) { return HI_MPI_AO_Enable(d); }},
    {"Disable", [](int32_t d, int32_t) { return HI_MPI_AO_Disable(d); }},
};
constexpr int32_t kBadDevices[] = {-1, 3, 4, 1 << 28, INT_MAX, INT_MIN};
constexpr int32_t kBadChannels[] = {-1, 16, 17, 1 << 28, INT_MAX, INT_MIN};

// The message that an operation writes: its name, any line, then the text.
void refused(const OnChannel& op, const char* module, int32_t device, int32_t channel, int32_t code,
             const string& text)
{
    SCOPED_TRACE(string(op.name) + "(" + std::to_string(device) + "," + std::to_string(channel) + ")");
    testing::internal::CaptureStderr();
    EXPECT_EQ(op.call(device, channel), code);
    const string said = testing::internal::GetCapturedStderr();
    const string head = string("[Func]:HI_MPI_") + module + "_" + op.name + " [Line]:";
    EXPECT_EQ(said.substr(0, head.size()), head);
    const size_t info = said.find(" [Info]:");
    ASSERT_NE(info, string::npos) << said;
    EXPECT_EQ(said.substr(info + 8), text);
}

} // namespace

TEST_F(BadInput, IdsBesideTheirBoundsAreRefusedByNameBeforeAnyDriverSeesThem)
{
    faults("ai open 0 -1 EIO\nao open 0 -1 EIO\n");
    for (int32_t device : kBadDevices) {
        const string id = std::to_string(device);
        for (const auto& table :
             {std::span<const OnChannel>(kInput), std::span<const OnChannel>(kInputDevice)})
            for (const auto& op : table)
                refused(op, "AI", device, 99, kAi | 1, "aidev" + id + " is not supported\n");
        for (const auto& table :
             {std::span<const OnChannel>(kOutput), std::span<const OnChannel>(kOutputDevice)})
            for (const auto& op : table)
                refused(op, "AO", device, 99, kAo | 1, "aodev" + id + " is not supported\n");
    }
    for (int32_t channel : kBadChannels) {
        const string text = " chnid " + std::to_string(channel) + " is invalid\n";
        for (const auto& op : kInput) refused(op, "AI", 2, channel, kAi | 2, "ai" + text);
        for (const auto& op : kOutput) refused(op, "AO", 0, channel, kAo | 2, "ao" + text);
    }
    EXPECT_EQ(HI_MPI_AI_EnableAec(0, 0, 3, 16), kAo | 1);
    EXPECT_EQ(HI_MPI_AI_EnableAec(0, 0, 2, 16), kAo | 2);
}

TEST_F(BadInput, NullRecordsAndFlags)
{
    const int32_t results[] = {
        HI_MPI_AI_SetPubAttr(0, nullptr),
        HI_MPI_AI_GetPubAttr(0, nullptr),
        HI_MPI_AI_EnableReSmp(0, 0, nullptr),
        HI_MPI_AI_SetChnParam(0, 0, nullptr),
        HI_MPI_AI_GetChnParam(0, 0, nullptr),
        HI_MPI_AI_GetFrame(0, 0, nullptr, nullptr, 2),
        HI_MPI_AI_ReleaseFrame(0, 0, nullptr, nullptr),
    };
    for (int32_t result : results) EXPECT_EQ(result, kAi | 6);
    const int32_t output[] = {HI_MPI_AO_SetPubAttr(0, nullptr), HI_MPI_AO_GetPubAttr(0, nullptr),
                              HI_MPI_AO_EnableReSmp(0, 0, nullptr), HI_MPI_AO_SendFrame(0, 0, nullptr, 2)};
    for (int32_t result : output) EXPECT_EQ(result, kAo | 6);
    MPP_CHN_S channel = {HI_ID_AI, 0, 0};
    const int32_t sys[] = {HI_MPI_SYS_SetConf(nullptr),
                           HI_MPI_SYS_GetConf(nullptr),
                           HI_MPI_SYS_GetCurPts(nullptr),
                           HI_MPI_SYS_Bind(nullptr, &channel),
                           HI_MPI_SYS_Bind(&channel, nullptr),
                           HI_MPI_SYS_UnBind(&channel, nullptr),
                           HI_MPI_SYS_GetBindByDest(nullptr, &channel),
                           HI_MPI_SYS_GetBindByDest(&channel, nullptr),
                           HI_MPI_SYS_GetChipId(nullptr),
                           HI_MPI_SYS_GetDieId(nullptr),
                           HI_MPI_SYS_GetCustomerId(nullptr),
                           HI_MPI_SYS_GetVersion(nullptr),
                           HI_MPI_SYS_GetReg(0x10070000, nullptr)};
    for (int32_t result : sys) EXPECT_EQ(result, kSys | 6);
    EXPECT_EQ(HI_MPI_LOG_SetLevelConf(nullptr), -1);
    EXPECT_EQ(HI_MPI_LOG_GetLevelConf(nullptr), -1);
    EXPECT_EQ(HI_MPI_VB_GetBlkVirAddr(200, 0, nullptr), kVb | 6);
    for (uint32_t flag : {2u, 3u, 0x80000000u, UINT32_MAX}) {
        EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &out, nullptr, flag), kAi | 3);
        EXPECT_EQ(HI_MPI_AO_SendFrame(kDev, 0, &silence, flag), kAo | 3);
    }
}

TEST_F(BadInput, PoolNumbersAndAddresses)
{
    void* address = nullptr;
    for (uint32_t pool : {128u, 129u, 0x7FFFFFFFu, 0x80000000u, UINT32_MAX}) {
        EXPECT_EQ(HI_MPI_VB_MmapPool(pool), kVb | 3);
        EXPECT_EQ(HI_MPI_VB_MunmapPool(pool), kVb | 3);
        EXPECT_EQ(HI_MPI_VB_GetBlkVirAddr(pool, 0, &address), kVb | 3);
    }
    EXPECT_EQ(HI_MPI_VB_GetBlkVirAddr(127, 0, &address), kVb | 0x10);
    EXPECT_EQ(HI_MPI_VB_MunmapPool(127), kVb | 0x10);
    EXPECT_NE(HI_MPI_VB_MmapPool(127), 0);
    for (auto [physical, size] : {std::pair<uint32_t, uint32_t>{0x80000000, 0},
                                  {0x80000002, UINT32_MAX},
                                  {0xFFFFFFFF, UINT32_MAX},
                                  {0xFFFFF000, 0x2000},
                                  {0x7FFFFFFF, 2}})
        EXPECT_EQ(HI_MPI_SYS_Mmap(physical, size), nullptr) << physical << " " << size;
}

// What the state does not allow: before the start, before attributes, twice, after the end.
TEST_F(BadInput, WrongOrder)
{
    EXPECT_EQ(HI_MPI_AI_GetPubAttr(kDev, &attr), kAi | 7);
    EXPECT_EQ(HI_MPI_AI_Enable(kDev), kAi | 7);
    EXPECT_EQ(HI_MPI_AO_Enable(kDev), kAo | 7);
    EXPECT_EQ(HI_MPI_AO_EnableReSmp(kDev, 0, &up), kAo | 7);
    EXPECT_EQ(HI_MPI_AI_EnableChn(kDev, 0), kAi | 9);
    EXPECT_EQ(HI_MPI_AO_EnableChn(kDev, 0), kAo | 9);
    open_input(attributes());
    open_output(attributes());
    EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 1, &out, nullptr, 1), kAi | 9) << "a channel that is not enabled";
    EXPECT_EQ(HI_MPI_AI_EnableChn(kDev, 2), kAi | 2) << "the device has two";
    for (int twice = 0; twice < 2; ++twice) {
        EXPECT_EQ(HI_MPI_AI_Enable(kDev), 0);
        EXPECT_EQ(HI_MPI_AI_EnableChn(kDev, 0), 0);
        EXPECT_EQ(HI_MPI_AO_Enable(kDev), 0);
        EXPECT_EQ(HI_MPI_AO_EnableChn(kDev, 0), 0);
    }
    AIO_ATTR_S other = attributes(16000);
    EXPECT_EQ(HI_MPI_AI_SetPubAttr(kDev, &other), kAi | 9);
    EXPECT_EQ(HI_MPI_AO_SetPubAttr(kDev, &other), kAo | 9);
    for (int twice = 0; twice < 2; ++twice) {
        EXPECT_EQ(HI_MPI_AI_DisableChn(kDev, 0), 0);
        EXPECT_EQ(HI_MPI_AI_Disable(kDev), 0);
        EXPECT_EQ(HI_MPI_AO_DisableChn(kDev, 0), 0);
        EXPECT_EQ(HI_MPI_AO_Disable(kDev), 0);
    }
    EXPECT_EQ(HI_MPI_SYS_Exit(), 0);
    EXPECT_EQ(HI_MPI_SYS_Exit(), 0);
    EXPECT_EQ(HI_MPI_AI_SetPubAttr(kDev, &attr), kAi | 0x10);
    EXPECT_EQ(HI_MPI_AI_Enable(kDev), kAi | 0x10);
    EXPECT_EQ(HI_MPI_AO_SetPubAttr(kDev, &attr), kAo | 0x10);
    EXPECT_EQ(HI_MPI_AO_SendFrame(kDev, 0, &silence, 1), kAo | 9);
}

TEST_F(BadInput, AFrameIsReleasedOnceByItsOwnChannel)
{
    open_input(attributes(), 2);
    AUDIO_FRAME_S frame = {}, forged = {};
    ASSERT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 1), 0);
    forged = frame;
    forged.u32PhysAddr[0] += 4;
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &forged, nullptr), kAi | 3);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 1, &frame, nullptr), kAi | 3) << "another channel's";
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), kVb | 0x12) << "a frame is out";
    EXPECT_EQ(samples_of(frame)[0], 0) << "and still mapped";
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), kAi | 3);
    // The library's own frames, after resampling.
    ASSERT_EQ(HI_MPI_AI_EnableReSmp(kDev, 0, &up), 0);
    ASSERT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 1), 0);
    EXPECT_EQ(frame.s32PoolId, -1);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), 0);
}

// Disabling a device that was never enabled must not take away whatever pool has number 0.
TEST_F(BadInput, DisablingAnIdleDeviceLeavesOthersPoolsMapped)
{
    const uint32_t pool = HI_MPI_VB_CreatePool(4096, 2);
    ASSERT_EQ(pool, 0u);
    ASSERT_EQ(HI_MPI_VB_MmapPool(pool), 0);
    EXPECT_EQ(HI_MPI_AI_Disable(1), 0);
    void* address = nullptr;
    EXPECT_EQ(HI_MPI_VB_GetBlkVirAddr(pool, 0x8C000000, &address), 0);
}
