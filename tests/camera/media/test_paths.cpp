// Whole paths: input to encoder, decoder to output, and memory that they share.
#include "tests/camera/media/media.hpp"

#include "mpi/audio/audio_voice_adp.h"
#include "mpi/audio/g711.h"
#include "mpi/src/mpi_adec.h"
#include "mpi/src/mpi_aenc.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>

namespace {

struct Paths : Platform {
    static void create(int32_t type = PT_G711A)
    {
        uint32_t codec[4] = {};
        AENC_CHN_ATTR_S encode = {type, 30, codec};
        ADEC_CHN_ATTR_S decode = {type, 5, ADEC_MODE_PACK, codec};
        ASSERT_EQ(HI_MPI_AENC_CreateChn(0, &encode), 0);
        ASSERT_EQ(HI_MPI_ADEC_CreateChn(0, &decode), 0);
    }
    static void bind()
    {
        MPP_CHN_S ai = {HI_ID_AI, kDev, 0}, aenc = {HI_ID_AENC, 0, 0}, adec = {HI_ID_ADEC, 7, 0},
                  ao = {HI_ID_AO, kDev, 0};
        ASSERT_EQ(HI_MPI_SYS_Bind(&ai, &aenc), 0);
        ASSERT_EQ(HI_MPI_SYS_Bind(&adec, &ao), 0);
        EXPECT_EQ(adec.s32DevId, 0) << "normalised in place";
    }
};

using Wired = Paths;

constexpr int32_t kSys = MPP_ERROR(HI_ID_SYS, 0), kVb = MPP_ERROR(HI_ID_VB, 0);

} // namespace

// The microphone's file through G.711 into the speaker's: what comes out is each sample coded once.
TEST_F(Paths, FromTheMicrophoneThroughTheCodecToTheSpeaker)
{
    const Samples heard = ramp(160 * 40);
    microphone(heard, 8000);
    open_input(attributes());
    open_output(attributes());
    create();
    bind();
    for (uint32_t i = 0; i < 40; ++i) {
        AENC_STREAM_HEADER_S stream = {};
        ASSERT_EQ(HI_MPI_AENC_GetStream(0, &stream, 1), 0);
        EXPECT_EQ(stream.u32Seq, i);
        ASSERT_EQ(HI_MPI_ADEC_SendStream(0, &stream, 1), 0);
        ASSERT_EQ(HI_MPI_AENC_ReleaseStream(0, &stream), 0);
    }
    Samples expected = heard;
    for (auto& s : expected) {
        uint8_t code = 0;
        G711_EncodeA(&s, &code, 1);
        G711_DecodeA(&code, &s, 1);
    }
    EXPECT_EQ(speaker().samples, expected);
}

TEST_F(Paths, TheDriverKeepsItsBindingsAndTheLibraryItsOwn)
{
    MPP_CHN_S ai = {HI_ID_AI, kDev, 0}, aenc = {HI_ID_AENC, 9, 3}, other = {HI_ID_AI, 0, 1}, found = {};
    ASSERT_EQ(HI_MPI_SYS_Bind(&ai, &aenc), 0);
    EXPECT_EQ(HI_MPI_SYS_Bind(&other, &aenc), kSys | 9) << "an output has one source";
    ASSERT_EQ(HI_MPI_SYS_GetBindByDest(&aenc, &found), 0);
    EXPECT_EQ(found.s32ModId, HI_ID_AI);
    EXPECT_EQ(found.s32DevId, kDev);
    EXPECT_EQ(HI_MPI_SYS_UnBind(&other, &aenc), kSys | 9);
    EXPECT_EQ(HI_MPI_SYS_UnBind(nullptr, &aenc), 0);
    EXPECT_NE(HI_MPI_SYS_GetBindByDest(&aenc, &found), 0);
    // A decoder's output is asked of the driver, which does not know it.
    MPP_CHN_S adec = {HI_ID_ADEC, 0, 0}, ao = {HI_ID_AO, 0, 3};
    ASSERT_EQ(HI_MPI_SYS_Bind(&adec, &ao), 0);
    EXPECT_NE(HI_MPI_SYS_GetBindByDest(&ao, &found), 0);
    MPP_CHN_S shared = {HI_ID_AO, 1, 0};
    EXPECT_EQ(HI_MPI_SYS_Bind(&adec, &shared), kSys | 9) << "shares the place of 0,3";
    EXPECT_EQ(HI_MPI_SYS_UnBind(&adec, &ao), 0);
    EXPECT_EQ(HI_MPI_SYS_UnBind(&adec, &ao), 0);
}

// Unbinding while a stream runs: the encoder then waits for frames that are sent by hand.
TEST_F(Paths, UnbindInMidStream)
{
    open_input(attributes());
    create();
    MPP_CHN_S ai = {HI_ID_AI, kDev, 0}, aenc = {HI_ID_AENC, 0, 0};
    AENC_STREAM_HEADER_S stream = {};
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(HI_MPI_SYS_Bind(&ai, &aenc), 0);
        ASSERT_EQ(HI_MPI_AENC_GetStream(0, &stream, 1), 0);
        ASSERT_EQ(HI_MPI_SYS_UnBind(&ai, &aenc), 0);
        ASSERT_EQ(HI_MPI_AENC_ReleaseStream(0, &stream), 0);
        EXPECT_EQ(HI_MPI_AENC_GetStream(0, &stream, 0), MPP_ERROR(HI_ID_AENC, MPP_ERR_EMPTY));
    }
}

// Encoding and decoding on threads of their own, with the channels made anew while they work.
TEST_F(Paths, TwoThreadsRunBothWays)
{
    const Samples heard = ramp(160 * 100);
    microphone(heard, 8000);
    open_input(attributes());
    open_output(attributes());
    create(PT_LPCM);
    bind();
    std::vector<string> wire;
    std::thread encoder([&] {
        for (int i = 0; i < 60; ++i) {
            AENC_STREAM_HEADER_S stream = {};
            if (HI_MPI_AENC_GetStream(0, &stream, 1) != 0) return;
            wire.emplace_back(reinterpret_cast<char*>(stream.pu8Data), stream.u32Len);
            HI_MPI_AENC_ReleaseStream(0, &stream);
        }
    });
    Samples tone = ramp(160);
    std::thread decoder([&] {
        for (int i = 0; i < 60; ++i) {
            AENC_STREAM_HEADER_S stream = {};
            stream.pu8Data = reinterpret_cast<uint8_t*>(tone.data());
            stream.u32Len = 320;
            HI_MPI_ADEC_SendStream(0, &stream, 1);
        }
    });
    encoder.join();
    decoder.join();
    ASSERT_EQ(wire.size(), 60u);
    for (size_t i = 0; i < wire.size(); ++i)
        ASSERT_EQ(memcmp(wire[i].data(), &heard[i * 160], 320), 0) << "frame " << i;
    EXPECT_EQ(speaker().samples.size(), 60 * 160u);
}

TEST_F(Paths, BlocksAreInUseUntilTheyAreReleased)
{
    const uint32_t pool = HI_MPI_VB_CreatePool(5000, 2);
    ASSERT_LT(pool, VB_MAX_POOLS);
    const uint32_t first = HI_MPI_VB_GetBlock(pool, 0), second = HI_MPI_VB_GetBlock(pool, 0);
    EXPECT_NE(first, second);
    EXPECT_EQ(HI_MPI_VB_GetBlock(pool, 0), UINT32_MAX);
    EXPECT_EQ(HI_MPI_VB_Handle2PoolId(second), pool);
    EXPECT_EQ(HI_MPI_VB_Handle2PhysAddr(second) - HI_MPI_VB_Handle2PhysAddr(first), 5056u);
    testing::internal::CaptureStderr();
    ASSERT_EQ(HI_MPI_VB_MmapPool(pool), 0);
    EXPECT_EQ(HI_MPI_VB_MmapPool(pool), 0);
    EXPECT_EQ(HI_MPI_VB_MunmapPool(pool), kVb | 0x12);
    const string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("]:Pool 0 has mapped!\n"), string::npos) << said;
    EXPECT_NE(said.find("]:Vb pool 0  is used by some modules!\n"), string::npos) << said;
    void *a = nullptr, *b = nullptr;
    ASSERT_EQ(HI_MPI_VB_GetBlkVirAddr(pool, HI_MPI_VB_Handle2PhysAddr(first), &a), 0);
    ASSERT_EQ(HI_MPI_VB_GetBlkVirAddr(pool, HI_MPI_VB_Handle2PhysAddr(second), &b), 0);
    EXPECT_EQ(static_cast<char*>(b) - static_cast<char*>(a), 5056);
    // Another process sees the same memory and the same blocks.
    strcpy(static_cast<char*>(b), "seen");
    EXPECT_EQ(in_child([&] {
                  void* at = HI_MPI_SYS_Mmap(HI_MPI_VB_Handle2PhysAddr(second), 16);
                  const bool same = at && strcmp(static_cast<char*>(at), "seen") == 0;
                  return same && HI_MPI_VB_ReleaseBlock(first) == 0 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(HI_MPI_VB_ReleaseBlock(first), kVb | 3) << "released by the other";
    EXPECT_EQ(HI_MPI_VB_DestroyPool(pool), kVb | 0x12);
    EXPECT_EQ(HI_MPI_VB_Exit(), kVb | 0x12);
    EXPECT_EQ(HI_MPI_VB_ReleaseBlock(second), 0);
    EXPECT_EQ(HI_MPI_VB_MunmapPool(pool), 0);
    EXPECT_EQ(HI_MPI_VB_DestroyPool(pool), 0);
}

// A pool's number is used again for other memory.
TEST_F(Paths, APoolThatIsDestroyedIsMappedNoLonger)
{
    const uint32_t first = HI_MPI_VB_CreatePool(4096, 1);
    ASSERT_EQ(HI_MPI_VB_MmapPool(first), 0);
    ASSERT_EQ(HI_MPI_VB_DestroyPool(first), 0);
    void* address = nullptr;
    EXPECT_EQ(HI_MPI_VB_GetBlkVirAddr(first, 0x8C000000, &address), kVb | 0x10);
    const uint32_t second = HI_MPI_VB_CreatePool(8192, 4);
    ASSERT_EQ(second, first);
    ASSERT_EQ(HI_MPI_VB_MmapPool(second), 0);
    uint32_t block = 0;
    for (int i = 0; i < 4; ++i) block = HI_MPI_VB_GetBlock(second, 0);
    ASSERT_EQ(HI_MPI_VB_GetBlkVirAddr(second, HI_MPI_VB_Handle2PhysAddr(block), &address), 0);
    memset(address, 0x5A, 8192);
    auto* seen = static_cast<uint8_t*>(HI_MPI_SYS_Mmap(HI_MPI_VB_Handle2PhysAddr(block), 8192));
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(seen[8191], 0x5A);
    EXPECT_EQ(HI_MPI_SYS_Munmap(seen, 8192), 0);
    for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(HI_MPI_VB_ReleaseBlock(block - i), 0);
}

TEST_F(Paths, AnyPoolGivesTheSmallestBlockThatFits)
{
    stop_platform();
    VB_CONF_S conf = {3, {{1000, 1}, {4000, 2}, {2000, 1}}};
    ASSERT_EQ(HI_MPI_VB_SetConf(&conf), 0);
    ASSERT_EQ(HI_MPI_VB_Init(), 0);
    uint32_t blocks[3];
    for (uint32_t& block : blocks) block = HI_MPI_VB_GetBlock(VB_ANY_POOL, 1500);
    EXPECT_EQ(HI_MPI_VB_Handle2PoolId(blocks[0]), 2u);
    EXPECT_EQ(HI_MPI_VB_Handle2PoolId(blocks[1]), 1u);
    EXPECT_EQ(HI_MPI_VB_Handle2PoolId(blocks[2]), 1u);
    EXPECT_EQ(HI_MPI_VB_GetBlock(VB_ANY_POOL, 1500), UINT32_MAX);
    EXPECT_EQ(HI_MPI_VB_GetBlock(VB_ANY_POOL, 5000), UINT32_MAX);
    for (uint32_t block : blocks) EXPECT_EQ(HI_MPI_VB_ReleaseBlock(block), 0);
}

TEST_F(Paths, RegistersAndMediaMemory)
{
    uint32_t chip = 0, value = 0;
    for (auto [word, id] : {std::pair<uint32_t, uint32_t>{0, 3516}, {1, 3516}, {2, 3517}, {3, 3516}}) {
        ASSERT_EQ(HI_MPI_SYS_SetReg(0x10070000, word), 0);
        EXPECT_EQ(HI_MPI_SYS_GetChipId(&chip), 0);
        EXPECT_EQ(chip, id) << word;
    }
    auto* at = static_cast<char*>(HI_MPI_SYS_Mmap(0x10070002, 4));
    ASSERT_NE(at, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(at) % 4096, 2u);
    EXPECT_EQ(HI_MPI_SYS_Munmap(at, 4), 0);
    EXPECT_EQ(system("reg -s 0x10070004 0x55"), 0);
    EXPECT_EQ(HI_MPI_SYS_GetReg(0x10070004, &value), 0);
    EXPECT_EQ(value, 0x55u);
    uint32_t address = 0x10070004;
    ASSERT_EQ(HI_MPI_SYS_GetVirtRegAddr(&address), 0);
    EXPECT_EQ(*reinterpret_cast<uint32_t*>(uintptr_t(address)), 0x55u);

    uint32_t physical = 0;
    void* block = nullptr;
    ASSERT_EQ(HI_MPI_SYS_MmzAlloc(&physical, &block, "a name of more than 15", "zone", 10000), 0);
    memset(block, 0x5A, 10000);
    auto* seen = static_cast<uint8_t*>(HI_MPI_SYS_Mmap(physical, 10000));
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(seen[9999], 0x5A);
    EXPECT_EQ(HI_MPI_SYS_Munmap(seen, 10000), 0);
    EXPECT_EQ(HI_MPI_SYS_MmzFlushCache(physical, block, 10000), 0);
    EXPECT_EQ(HI_MPI_SYS_MmzFree(physical), 0);
    char version[MPP_VERSION_SIZE];
    EXPECT_EQ(HI_MPI_SYS_GetVersion(version), 0);
    EXPECT_STREQ(version, "HI_VERSION=Hi3516_MPP_V1.0.6.1 Debug");
}

// On a camera whose chip's register always reads 2: mappings, the tool and the driver have the same words.
TEST_F(Wired, RegistersAreOneHoweverTheyAreReached)
{
    uint32_t chip = 0, value = 0, address = 0x10070000;
    const int memory = open("/dev/mem", O_RDWR | O_SYNC);
    const void* page = mmap(nullptr, 4, PROT_READ, MAP_SHARED, memory, off_t(address));
    ASSERT_NE(page, MAP_FAILED);
    EXPECT_EQ(static_cast<const volatile uint32_t*>(page)[0xFFC / 4], 3u) << "a page is mapped whole";
    close(memory);
    ASSERT_EQ(HI_MPI_SYS_GetVirtRegAddr(&address), 0);
    const auto* at = reinterpret_cast<volatile uint32_t*>(uintptr_t(address));
    EXPECT_EQ(*at, 2u);
    EXPECT_EQ(HI_MPI_SYS_GetChipId(&chip), 0);
    EXPECT_EQ(chip, 3517u);
    ASSERT_EQ(HI_MPI_SYS_SetReg(0x10070000, 1), 0);
    EXPECT_EQ(HI_MPI_SYS_GetReg(0x10070000, &value), 0);
    EXPECT_EQ(value, 2u);
    ASSERT_EQ(HI_MPI_SYS_SetReg(0x10070008, 0xA5), 0);
    EXPECT_EQ(at[2], 0xA5u);
    EXPECT_EQ(system("reg -r 0x10070000; reg -r 0x10070008; reg -c 0x10070008 0xA0"), 0);
    EXPECT_EQ(at[2], 0x05u);
    EXPECT_EQ(HI_MPI_SYS_GetReg(0x10070008, &value), 0);
    EXPECT_EQ(value, 0x05u);
}

TEST_F(Paths, TheLogTellsWhatTheDriversDid)
{
    open_output(attributes());
    char text[512] = {};
    string all;
    for (int32_t n; (n = HI_MPI_LOG_Read(text, sizeof text)) > 0;) all.append(text, size_t(n));
    EXPECT_NE(all.find(" ao enablechn 2 0\n"), string::npos) << all;
    LOG_LEVEL_CONF_S level = {HI_ID_AO, 5, "ao"}, read = {HI_ID_AO, 0, ""};
    EXPECT_EQ(HI_MPI_LOG_SetLevelConf(&level), 0);
    EXPECT_EQ(HI_MPI_LOG_GetLevelConf(&read), 0);
    EXPECT_EQ(read.s32Level, 5);
    EXPECT_EQ(HI_MPI_LOG_Close(), -1);
    EXPECT_EQ(HI_MPI_LOG_Close(), 0);
    EXPECT_EQ(HI_MPI_SYS_CloseFd(), 0);
}

// A fatal error of the platform's own: the block on standard output, and the status that _exit(-1) gives.
TEST_F(Paths, OutputTakesAudioFramesOnly)
{
    const auto ends_with = [](int32_t type, void* data, const string& condition) {
        const string said = printed(
            [&] { EXPECT_EQ(in_child([&] { return MPI_AO_ReceiveFrm(kDev, 0, type, data); }), 255); });
        const string head = "\nASSERT failed at:\n  >File name: mpp/code/mpi/src/mpi_ao\n"
                            "  >Function : MPI_AO_ReceiveFrm\n  >Line No. : ";
        EXPECT_EQ(said.substr(0, head.size()), head);
        EXPECT_EQ(said.substr(said.find("  >Condition")), "  >Condition: " + condition + "\n");
    };
    int data = 0;
    ends_with(1, &data, "MPP_DATA_AUDIO_FRAME == enDataType");
    ends_with(2, nullptr, "NULL != pData");
}
