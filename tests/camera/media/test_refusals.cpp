// What callers can do wrong: each call, and the code and the words that it gives back.
#include "tests/camera/media/media.hpp"

#include <climits>

namespace refusals_test {
namespace {

using Refusals = Platform;

AIO_ATTR_S attr = attributes();
AIO_RESAMPLE_ATTR_S up = {160, 8000, 1};
AI_CHN_PARAM_S param;
Samples sound(160);
AUDIO_FRAME_S silence = Platform::frame_of(sound), out;

struct Operation {
    const char* name; // behind HI_MPI_
    int32_t (*call)(int32_t device, int32_t channel);
};
constexpr Operation kOnChannel[] = {
    {"AI_EnableChn", HI_MPI_AI_EnableChn},
    {"AI_DisableChn", HI_MPI_AI_DisableChn},
    {"AI_EnableReSmp", [](int32_t d, int32_t c) { return HI_MPI_AI_EnableReSmp(d, c, &up); }},
    {"AI_DisableReSmp", HI_MPI_AI_DisableReSmp},
    {"AI_EnableAnr", HI_MPI_AI_EnableAnr},
    {"AI_DisableAnr", HI_MPI_AI_DisableAnr},
    {"AI_EnableAec", [](int32_t d, int32_t c) { return HI_MPI_AI_EnableAec(d, c, 0, 0); }},
    {"AI_DisableAec", HI_MPI_AI_DisableAec},
    {"AI_SetChnParam", [](int32_t d, int32_t c) { return HI_MPI_AI_SetChnParam(d, c, &param); }},
    {"AI_GetChnParam", [](int32_t d, int32_t c) { return HI_MPI_AI_GetChnParam(d, c, &param); }},
    {"AI_GetFrame", [](int32_t d, int32_t c) { return HI_MPI_AI_GetFrame(d, c, &out, nullptr, 0); }},
    {"AI_ReleaseFrame", [](int32_t d, int32_t c) { return HI_MPI_AI_ReleaseFrame(d, c, &out, nullptr); }},
    {"AI_GetFd", HI_MPI_AI_GetFd},
    {"AO_EnableChn", HI_MPI_AO_EnableChn},
    {"AO_DisableChn", HI_MPI_AO_DisableChn},
    {"AO_PauseChn", HI_MPI_AO_PauseChn},
    {"AO_ResumeChn", HI_MPI_AO_ResumeChn},
    {"AO_ClearChnBuf", HI_MPI_AO_ClearChnBuf},
    {"AO_EnableReSmp", [](int32_t d, int32_t c) { return HI_MPI_AO_EnableReSmp(d, c, &up); }},
    {"AO_DisableReSmp", HI_MPI_AO_DisableReSmp},
    {"AO_SendFrame", [](int32_t d, int32_t c) { return HI_MPI_AO_SendFrame(d, c, &silence, 0); }},
    {"AO_GetFd", HI_MPI_AO_GetFd},
};
constexpr Operation kOnDevice[] = {
    {"AI_SetPubAttr", [](int32_t d, int32_t) { return HI_MPI_AI_SetPubAttr(d, &attr); }},
    {"AI_GetPubAttr", [](int32_t d, int32_t) { return HI_MPI_AI_GetPubAttr(d, &attr); }},
    {"AI_Enable", [](int32_t d, int32_t) { return HI_MPI_AI_Enable(d); }},
    {"AI_Disable", [](int32_t d, int32_t) { return HI_MPI_AI_Disable(d); }},
    {"AO_SetPubAttr", [](int32_t d, int32_t) { return HI_MPI_AO_SetPubAttr(d, &attr); }},
    {"AO_GetPubAttr", [](int32_t d, int32_t) { return HI_MPI_AO_GetPubAttr(d, &attr); }},
    {"AO_Enable", [](int32_t d, int32_t) { return HI_MPI_AO_Enable(d); }},
    {"AO_Disable", [](int32_t d, int32_t) { return HI_MPI_AO_Disable(d); }},
};

// Refused for its device, number 1, or for its channel, number 2.
void refused(const Operation& op, int32_t device, int32_t channel, int number)
{
    const bool in = op.name[1] == 'I';
    const string id = std::to_string(number == 1 ? device : channel), module = in ? "ai" : "ao";
    SCOPED_TRACE(string(op.name) + "(" + std::to_string(device) + "," + std::to_string(channel) + ")");
    const Complaints complaints;
    EXPECT_EQ(op.call(device, channel), (in ? kAi : kAo) | number);
    EXPECT_EQ(complaints.info(string("HI_MPI_") + op.name + " [Line]:"),
              number == 1 ? module + "dev" + id + " is not supported\n"
                          : module + " chnid " + id + " is invalid\n");
}

TEST_F(Refusals, IdsBesideTheirBoundsAreRefusedByNameBeforeAnyDriverSeesThem)
{
    faults("ai open 0 -1 EIO\nao open 0 -1 EIO\n");
    for (int32_t device : {-1, 3, 4, 1 << 28, INT_MAX, INT_MIN}) {
        for (const auto& op : kOnChannel) refused(op, device, 99, 1);
        for (const auto& op : kOnDevice) refused(op, device, 99, 1);
    }
    for (int32_t channel : {-1, 16, 17, 1 << 28, INT_MAX, INT_MIN})
        for (const auto& op : kOnChannel) refused(op, op.name[1] == 'I' ? 2 : 0, channel, 2);
    EXPECT_EQ(HI_MPI_AI_EnableAec(0, 0, 3, 16), kAo | 1);
    EXPECT_EQ(HI_MPI_AI_EnableAec(0, 0, 2, 16), kAo | 2);
}

TEST_F(Refusals, NullRecordsFlagsPoolNumbersAndAddresses)
{
    MPP_CHN_S channel = {HI_ID_AI, 0, 0};
    const std::pair<int32_t, std::vector<int32_t>> rows[] = {
        {kAi | 6,
         {HI_MPI_AI_SetPubAttr(0, nullptr), HI_MPI_AI_GetPubAttr(0, nullptr),
          HI_MPI_AI_EnableReSmp(0, 0, nullptr), HI_MPI_AI_SetChnParam(0, 0, nullptr),
          HI_MPI_AI_GetChnParam(0, 0, nullptr), HI_MPI_AI_GetFrame(0, 0, nullptr, nullptr, 2),
          HI_MPI_AI_ReleaseFrame(0, 0, nullptr, nullptr)}},
        {kAo | 6,
         {HI_MPI_AO_SetPubAttr(0, nullptr), HI_MPI_AO_GetPubAttr(0, nullptr),
          HI_MPI_AO_EnableReSmp(0, 0, nullptr), HI_MPI_AO_SendFrame(0, 0, nullptr, 2)}},
        {kSys | 6,
         {HI_MPI_SYS_SetConf(nullptr), HI_MPI_SYS_GetConf(nullptr), HI_MPI_SYS_GetCurPts(nullptr),
          HI_MPI_SYS_Bind(nullptr, &channel), HI_MPI_SYS_Bind(&channel, nullptr),
          HI_MPI_SYS_UnBind(&channel, nullptr), HI_MPI_SYS_GetBindByDest(nullptr, &channel),
          HI_MPI_SYS_GetBindByDest(&channel, nullptr), HI_MPI_SYS_GetChipId(nullptr),
          HI_MPI_SYS_GetDieId(nullptr), HI_MPI_SYS_GetCustomerId(nullptr), HI_MPI_SYS_GetVersion(nullptr),
          HI_MPI_SYS_GetReg(0x10070000, nullptr)}},
        {-1, {HI_MPI_LOG_SetLevelConf(nullptr), HI_MPI_LOG_GetLevelConf(nullptr)}},
        {kVb | 6, {HI_MPI_VB_GetBlkVirAddr(200, 0, nullptr)}},
    };
    for (const auto& [code, results] : rows) EXPECT_EQ(results, std::vector(results.size(), code));
    for (uint32_t flag : {2u, 3u, 0x80000000u, UINT32_MAX}) {
        EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &out, nullptr, flag), kAi | 3);
        EXPECT_EQ(HI_MPI_AO_SendFrame(kDev, 0, &silence, flag), kAo | 3);
    }
    void* address = nullptr;
    for (uint32_t pool : {128u, 129u, 0x7FFFFFFFu, 0x80000000u, UINT32_MAX}) {
        EXPECT_EQ(HI_MPI_VB_MmapPool(pool), kVb | 3);
        EXPECT_EQ(HI_MPI_VB_MunmapPool(pool), kVb | 3);
        EXPECT_EQ(HI_MPI_VB_GetBlkVirAddr(pool, 0, &address), kVb | 3);
    }
    EXPECT_EQ(HI_MPI_VB_GetBlkVirAddr(127, 0, &address), kVb | 0x10);
    EXPECT_EQ(HI_MPI_VB_MunmapPool(127), kVb | 0x10);
    EXPECT_NE(HI_MPI_VB_MmapPool(127), 0);
    const uint32_t ranges[][2] = {
        {0x80000000, 0}, {0x80000002, ~0u}, {~0u, ~0u}, {0xFFFFF000, 0x2000}, {0x7FFFFFFF, 2}};
    for (auto [physical, size] : ranges)
        EXPECT_EQ(HI_MPI_SYS_Mmap(physical, size), nullptr) << physical << " " << size;
}

// What the state does not allow: before the start, before attributes, twice, after the end. Calls in their order.
TEST_F(Refusals, WrongOrder)
{
    using Codes = std::vector<int32_t>;
    EXPECT_EQ((Codes{HI_MPI_AI_GetPubAttr(kDev, &attr), HI_MPI_AI_Enable(kDev), HI_MPI_AO_Enable(kDev),
                     HI_MPI_AO_EnableReSmp(kDev, 0, &up), HI_MPI_AI_EnableChn(kDev, 0),
                     HI_MPI_AO_EnableChn(kDev, 0)}),
              (Codes{kAi | 7, kAi | 7, kAo | 7, kAo | 7, kAi | 9, kAo | 9}));
    open_input(attributes());
    open_output(attributes());
    EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 1, &out, nullptr, 1), kAi | 9) << "a channel that is not enabled";
    EXPECT_EQ(HI_MPI_AI_EnableChn(kDev, 2), kAi | 2) << "the device has two";
    const AIO_ATTR_S other = attributes(16000);
    for (int twice = 0; twice < 2; ++twice)
        EXPECT_EQ((Codes{HI_MPI_AI_Enable(kDev), HI_MPI_AI_EnableChn(kDev, 0), HI_MPI_AO_Enable(kDev),
                         HI_MPI_AO_EnableChn(kDev, 0), HI_MPI_AI_SetPubAttr(kDev, &other),
                         HI_MPI_AO_SetPubAttr(kDev, &other)}),
                  (Codes{0, 0, 0, 0, kAi | 9, kAo | 9}));
    for (int twice = 0; twice < 2; ++twice)
        EXPECT_EQ((Codes{HI_MPI_AI_DisableChn(kDev, 0), HI_MPI_AI_Disable(kDev),
                         HI_MPI_AO_DisableChn(kDev, 0), HI_MPI_AO_Disable(kDev)}),
                  Codes(4, 0));
    EXPECT_EQ((Codes{HI_MPI_SYS_Exit(), HI_MPI_SYS_Exit(), HI_MPI_AI_SetPubAttr(kDev, &attr),
                     HI_MPI_AI_Enable(kDev), HI_MPI_AO_SetPubAttr(kDev, &attr),
                     HI_MPI_AO_SendFrame(kDev, 0, &silence, 1)}),
              (Codes{0, 0, kAi | 0x10, kAi | 0x10, kAo | 0x10, kAo | 9}));
}

TEST_F(Refusals, AFrameIsReleasedOnceByItsOwnChannel)
{
    open_input(attributes(), 2);
    AUDIO_FRAME_S frame = {}, forged = {};
    ASSERT_EQ(get(frame), 0);
    forged = frame;
    forged.u32PhysAddr[0] += 4;
    EXPECT_EQ(release(forged), kAi | 3);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 1, &frame, nullptr), kAi | 3) << "another channel's";
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), kVb | 0x12) << "a frame is out";
    EXPECT_EQ(samples_of(frame)[0], 0) << "and still mapped";
    EXPECT_EQ(release(frame), 0);
    EXPECT_EQ(release(frame), kAi | 3);
    // The library's own frames, after resampling.
    ASSERT_EQ(HI_MPI_AI_EnableReSmp(kDev, 0, &up), 0);
    ASSERT_EQ(get(frame), 0);
    EXPECT_EQ(frame.s32PoolId, -1);
    EXPECT_EQ(release(frame), 0);
    EXPECT_EQ(release(frame), 0);
    EXPECT_EQ(HI_MPI_AI_Disable(kDev), 0);
}

TEST_F(Refusals, StagesCheckTheirRecordThenTheDevice)
{
    const Complaints complaints;
    open_input(attributes(16000, 320));
    open_output(attributes(16000, 160));
    const struct {
        bool input;
        AIO_RESAMPLE_ATTR_S attr;
        int32_t number; // 0: done
        const char* text;
    } rows[] = {
        {true, {2049, 7999, 0}, 3, "AiChn 1 resample u32InPointNum 2049 is larger than MAXFRAMESIZE 2048!\n"},
        {true, {2048, 7999, 0}, 3, "enInSampleRate:7999 is invalid\n"},
        {true, {2048, 48001, 1}, 3, "enInSampleRate:48001 is invalid\n"},
        {true, {2048, 48000, 0}, 3, "enInSampleRate:0 is invalid\n"},
        {true, {2048, 8000, 7}, 3, "enInSampleRate:7 is invalid\n"},
        {true, {2048, 48000, 6}, 3, "resample PtNumPerFrm2048 is not equal to AI's PtNumPerFrm320!\n"},
        {true, {320, 48000, 6}, 3, "resample SampleRate 48000 is not equal to AI's SampleRate 16000!\n"},
        {true, {320, 16000, 2}, 0, ""},
        {true, {320, 16000, 2}, 0, ""},
        {true, {2049, 16000, 2}, 9, "Resmp has been enabled but the attributes not the same as before\n"},
        {false,
         {2049, 7999, 0},
         3,
         "AoChn 0 resample u32InPointNum 2049 is larger than MAXFRAMESIZE 2048!\n"},
        {false, {2048, 48001, 0}, 3, "AoChn 0 resample rate is illegal!\n"},
        {false, {2048, 48000, 7}, 3, "AO's enReSampleType 7 is illegal!\n"},
        {false, {79, 8000, 1}, 3, "AO's PtNumPerFrm is not equal to the result of resample!\n"},
        {false, {80, 16000, 1}, 3, "AO's samplerate is not equal to the result of resample!\n"},
    };
    for (const auto& row : rows) {
        const int32_t code = row.number ? (row.input ? kAi : kAo) | row.number : 0;
        EXPECT_EQ(row.input ? HI_MPI_AI_EnableReSmp(kDev, 1, &row.attr)
                            : HI_MPI_AO_EnableReSmp(kDev, 0, &row.attr),
                  code);
        EXPECT_EQ(complaints.info(row.input ? "" : "MPI_AO_CheckReSmp "), row.text);
    }
    EXPECT_EQ(HI_MPI_AI_DisableReSmp(kDev, 1), 0);
    EXPECT_EQ(HI_MPI_AI_EnableReSmp(kDev, 1, &rows[0].attr), kAi | 3) << "no longer enabled";

    const std::pair<AIO_ATTR_S, const char*> devices[] = {
        {attributes(48000, 320), "AiDev: 2, anr should be 80 or 160 point per frm!\n"},
        {attributes(48000, 160), "AiDev: 2, anr should be 8k or 16k sample rate!\n"},
        {attributes(16000, 80, AUDIO_SOUND_STEREO), "anr don't support stereo!\n"},
    };
    for (const auto& [device, text] : devices) {
        start_platform();
        ASSERT_EQ(HI_MPI_AI_SetPubAttr(kDev, &device), 0);
        complaints.said();
        EXPECT_EQ(HI_MPI_AI_EnableAnr(kDev, 0), kAi | 3);
        EXPECT_EQ(complaints.info(), text);
    }
}

// Disabling a device that was never enabled must not take away whatever pool has number 0.
TEST_F(Refusals, DisablingAnIdleDeviceLeavesOthersPoolsMapped)
{
    ASSERT_EQ(HI_MPI_VB_CreatePool(4096, 2), 0u);
    ASSERT_EQ(HI_MPI_VB_MmapPool(0), 0);
    EXPECT_EQ(HI_MPI_AI_Disable(1), 0);
    void* address = nullptr;
    EXPECT_EQ(HI_MPI_VB_GetBlkVirAddr(0, 0x8C000000, &address), 0);
}

} // namespace
} // namespace refusals_test
