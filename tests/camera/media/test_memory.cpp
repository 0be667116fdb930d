// What is shared: pools and their blocks, memory zones, registers, bindings, the log.
#include "tests/camera/media/media.hpp"

#include <fcntl.h>
#include <sys/mman.h>

namespace {

using Memory = Platform;
using Wired = Platform;

// The same bytes through another mapping.
void expect_bytes(uint32_t physical, uint32_t size, int value)
{
    auto* seen = static_cast<uint8_t*>(HI_MPI_SYS_Mmap(physical, size));
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(seen[size - 1], value);
    EXPECT_EQ(HI_MPI_SYS_Munmap(seen, size), 0);
}

TEST_F(Memory, TheDriverKeepsItsBindingsAndTheLibraryItsOwn)
{
    MPP_CHN_S ai = input(), aenc = {HI_ID_AENC, 9, 3}, other = {HI_ID_AI, 0, 1}, found = {};
    ASSERT_EQ(HI_MPI_SYS_Bind(&ai, &aenc), 0);
    EXPECT_EQ(HI_MPI_SYS_Bind(&other, &aenc), kSys | 9) << "an output has one source";
    ASSERT_EQ(HI_MPI_SYS_GetBindByDest(&aenc, &found), 0);
    EXPECT_EQ(memcmp(&found, &ai, sizeof ai), 0);
    EXPECT_EQ(HI_MPI_SYS_UnBind(&other, &aenc), kSys | 9);
    EXPECT_EQ(HI_MPI_SYS_UnBind(nullptr, &aenc), 0);
    EXPECT_NE(HI_MPI_SYS_GetBindByDest(&aenc, &found), 0);
    // A decoder's output is asked of the driver, which does not know it.
    MPP_CHN_S adec = {HI_ID_ADEC, 7, 0}, ao = {HI_ID_AO, 0, 3}, shared = {HI_ID_AO, 1, 0};
    ASSERT_EQ(HI_MPI_SYS_Bind(&adec, &ao), 0);
    EXPECT_EQ(adec.s32DevId, 0) << "normalised in place";
    EXPECT_NE(HI_MPI_SYS_GetBindByDest(&ao, &found), 0);
    EXPECT_EQ(HI_MPI_SYS_Bind(&adec, &shared), kSys | 9) << "shares the place of 0,3";
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(HI_MPI_SYS_UnBind(&adec, &ao), 0);
}

TEST_F(Memory, BlocksAreInUseUntilTheyAreReleased)
{
    const uint32_t pool = HI_MPI_VB_CreatePool(5000, 2);
    ASSERT_LT(pool, VB_MAX_POOLS);
    const uint32_t first = HI_MPI_VB_GetBlock(pool, 0), second = HI_MPI_VB_GetBlock(pool, 0);
    const uint32_t at_first = HI_MPI_VB_Handle2PhysAddr(first), at_second = HI_MPI_VB_Handle2PhysAddr(second);
    EXPECT_NE(first, second);
    EXPECT_EQ(HI_MPI_VB_GetBlock(pool, 0), UINT32_MAX);
    EXPECT_EQ(HI_MPI_VB_Handle2PoolId(second), pool);
    EXPECT_EQ(at_second - at_first, 5056u);
    const Complaints complaints;
    ASSERT_EQ(HI_MPI_VB_MmapPool(pool), 0);
    EXPECT_EQ(HI_MPI_VB_MmapPool(pool), 0);
    EXPECT_NE(complaints.said().find("]:Pool 0 has mapped!\n"), string::npos);
    EXPECT_EQ(HI_MPI_VB_MunmapPool(pool), kVb | 0x12);
    EXPECT_NE(complaints.said().find("]:Vb pool 0  is used by some modules!\n"), string::npos);
    void *a = nullptr, *b = nullptr;
    ASSERT_EQ(HI_MPI_VB_GetBlkVirAddr(pool, at_first, &a), 0);
    ASSERT_EQ(HI_MPI_VB_GetBlkVirAddr(pool, at_second, &b), 0);
    EXPECT_EQ(static_cast<char*>(b) - static_cast<char*>(a), 5056);
    // Another process sees the same memory and the same blocks.
    strcpy(static_cast<char*>(b), "seen");
    EXPECT_EQ(in_child([&] {
                  void* at = HI_MPI_SYS_Mmap(at_second, 16);
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
TEST_F(Memory, APoolThatIsDestroyedIsMappedNoLonger)
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
    expect_bytes(HI_MPI_VB_Handle2PhysAddr(block), 8192, 0x5A);
    for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(HI_MPI_VB_ReleaseBlock(block - i), 0);
}

TEST_F(Memory, AnyPoolGivesTheSmallestBlockThatFits)
{
    start_platform({3, {{1000, 1}, {4000, 2}, {2000, 1}}});
    uint32_t blocks[3];
    for (uint32_t& block : blocks) block = HI_MPI_VB_GetBlock(VB_ANY_POOL, 1500);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(HI_MPI_VB_Handle2PoolId(blocks[i]), i ? 1u : 2u);
    EXPECT_EQ(HI_MPI_VB_GetBlock(VB_ANY_POOL, 1500), UINT32_MAX);
    EXPECT_EQ(HI_MPI_VB_GetBlock(VB_ANY_POOL, 5000), UINT32_MAX);
    for (uint32_t block : blocks) EXPECT_EQ(HI_MPI_VB_ReleaseBlock(block), 0);
}

TEST_F(Memory, RegistersAndMediaMemory)
{
    uint32_t chip = 0, value = 0;
    for (uint32_t bits : {0, 1, 2, 3}) {
        ASSERT_EQ(HI_MPI_SYS_SetReg(0x10070000, bits), 0);
        EXPECT_EQ(HI_MPI_SYS_GetChipId(&chip), 0);
        EXPECT_EQ(chip, bits == 2 ? 3517u : 3516u) << bits;
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
    expect_bytes(physical, 10000, 0x5A);
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

TEST_F(Memory, TheLogTellsWhatTheDriversDid)
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
TEST_F(Memory, OutputTakesAudioFramesOnly)
{
    int data = 0;
    const std::tuple<int32_t, void*, string> rows[] = {{1, &data, "MPP_DATA_AUDIO_FRAME == enDataType"},
                                                       {2, nullptr, "NULL != pData"}};
    for (const auto& [type, at, condition] : rows) {
        const auto receive = [&, t = type, d = at] { return MPI_AO_ReceiveFrm(kDev, 0, t, d); };
        const string said = printed([&] { EXPECT_EQ(in_child(receive), 255); });
        const string head = "\nASSERT failed at:\n  >File name: mpp/code/mpi/src/mpi_ao\n"
                            "  >Function : MPI_AO_ReceiveFrm\n  >Line No. : ";
        EXPECT_EQ(said.substr(0, head.size()), head);
        EXPECT_EQ(said.substr(said.find("  >Condition")), "  >Condition: " + condition + "\n");
    }
}

} // namespace
