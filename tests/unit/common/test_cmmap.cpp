// Shared regions: processes and threads that copy under the locks, and holders that die.
#include "common/cmmap.h"
#include "tests/support/socket_helpers.hpp"
#include "tests/support/temp_folder.hpp"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <thread>

namespace {

using std::string;

constexpr uint32_t kSize = 4096;
constexpr uint32_t kWords = kSize / sizeof(uint32_t);

struct Region : testing::Test {
    TempFolder folder;
    int32_t key = 0x5A000000 | (getpid() & 0xFFFFFF);
    string path = folder / "region";
    CMMAP_S region = {};
    char bytes[2 * kSize] = {};

    ~Region() override
    {
        if (region.Deinit) region.Deinit(&region);
        semctl(semget(key, 1, 0), 0, IPC_RMID);
    }
    int init(CMMAP_S& r, uint32_t flags, uint32_t size = kSize) const
    {
        return CMMAP_Init(&r, path.c_str(), key, flags, size);
    }
    void create() { ASSERT_EQ(init(region, CMMAP_CREATE), 0); }
    bool key_exists() const { return semget(key, 1, 0) >= 0; }
    int semaphore() const { return semctl(region.sem_id, 0, GETVAL); }

    // A second process that attaches for itself; 0 is its good end.
    pid_t start(auto&& work) const
    {
        const pid_t child = fork();
        if (child != 0) return child;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        CMMAP_S own;
        _exit(init(own, CMMAP_ATTACH) == 0 ? work(own) : 99);
    }
    // The last word of the region.
    uint32_t counted()
    {
        EXPECT_EQ(region.Read(&region, bytes, kSize), 0);
        uint32_t words[kWords];
        memcpy(words, bytes, sizeof words);
        return words[kWords - 1];
    }
};

// Adds one to every word; false when the words differ, as they do when two are at it.
bool count_up(volatile uint32_t* words)
{
    const uint32_t value = words[0];
    for (uint32_t i = 0; i < kWords; ++i) {
        if (words[i] != value) return false;
        words[i] = value + 1;
        if (i == kWords / 2) usleep(10); // whoever is not kept out comes in here
    }
    return true;
}

int count_under_lock(CMMAP_S& region)
{
    bool good = true;
    for (int i = 0; good && i < 200; ++i) {
        region.Lock(&region);
        good = count_up(static_cast<uint32_t*>(region.address));
        region.Unlock(&region);
    }
    return good ? 0 : 1;
}

} // namespace

// A process's threads share the record lock; the semaphore keeps them apart, from each other and from others.
TEST_F(Region, NoneOfManyIncrementsOfTheThreadsOfTwoProcessesIsLost)
{
    create();
    auto two_threads = [](CMMAP_S& own) {
        int first = 0;
        std::thread one([&] { first = count_under_lock(own); });
        const int second = count_under_lock(own);
        one.join();
        return first | second;
    };
    const pid_t other = start(two_threads);
    EXPECT_EQ(two_threads(region), 0);
    EXPECT_EQ(end_of(other), 0);
    EXPECT_EQ(counted(), 800u);
}

// As when the owner has removed the set while others still use the region.
TEST_F(Region, WithoutTheSemaphoreTheRecordLockStillExcludesOtherProcesses)
{
    create();
    auto unguarded = [](CMMAP_S& own) {
        own.sem_id = -1;
        return freopen("/dev/null", "w", stdout) ? count_under_lock(own) : 98;
    };
    const pid_t workers[] = {start(unguarded), start(unguarded), start(unguarded)};
    for (const pid_t worker : workers) EXPECT_EQ(end_of(worker), 0);
    EXPECT_EQ(counted(), 600u);
}

TEST_F(Region, AHolderKilledInTheMiddleOfACopyLeavesBothLocksFree)
{
    create();
    const pid_t holder = start([](CMMAP_S& own) {
        own.Lock(&own);
        memset(own.address, 0xAA, kSize / 2);
        return pause();
    });
    while (semaphore() != 0) usleep(1000);
    while (*static_cast<volatile char*>(region.address) == 0) usleep(1000);
    kill(holder, SIGKILL);
    EXPECT_EQ(end_of(holder), 128 + SIGKILL);
    EXPECT_EQ(semaphore(), 1);
    EXPECT_EQ(region.Write(&region, "ours", 5), 0);
    EXPECT_EQ(end_of(start([](CMMAP_S& own) {
                  char seen[5];
                  return own.Read(&own, seen, sizeof seen) == 0 ? strcmp(seen, "ours") : 1;
              })),
              0);
}

TEST_F(Region, ASecondCreatorEmptiesTheRegionWithoutOwningTheSemaphore)
{
    create();
    EXPECT_EQ(region.owner, 1);
    ASSERT_EQ(region.Write(&region, "old", 4), 0);
    CMMAP_S second;
    ASSERT_EQ(init(second, CMMAP_CREATE), 0);
    EXPECT_EQ(second.owner, 0);
    EXPECT_EQ(second.sem_id, region.sem_id);
    EXPECT_EQ(folder.read("region"), string(kSize, '\0'));
    ASSERT_EQ(second.Write(&second, "new", 4), 0);
    EXPECT_EQ(region.Read(&region, bytes, 4), 0);
    EXPECT_STREQ(bytes, "new");
    EXPECT_EQ(second.Deinit(&second), 0);
    EXPECT_TRUE(key_exists());
    EXPECT_EQ(region.Deinit(&region), 0);
    EXPECT_FALSE(key_exists()) << "the owner's end removes it";
    EXPECT_EQ(folder.read("region").substr(0, 3), "new") << "the file stays";
}

// Emptied while another copies, it would be a bus error there.
TEST_F(Region, AFileThatASecondCreatorWritesOrShortensEndsNobodyByABusError)
{
    create();
    const pid_t reader = start([](CMMAP_S& own) {
        char seen[kSize];
        int failed = 0;
        for (int i = 0; i < 3000; ++i) failed |= own.Read(&own, seen, sizeof seen);
        return failed;
    });
    for (int i = 0; i < 1000; ++i) {
        CMMAP_S again;
        ASSERT_EQ(init(again, CMMAP_CREATE), 0);
        ASSERT_EQ(again.Deinit(&again), 0);
    }
    EXPECT_EQ(end_of(reader), 0);
    EXPECT_EQ(end_of(start([&](CMMAP_S& own) { return init(own, CMMAP_CREATE, 100); })), 0);
    EXPECT_EQ(region.Read(&region, bytes, 100), 0);
    ASSERT_EQ(truncate(path.c_str(), 0), 0);
    EXPECT_EQ(region.Read(&region, bytes, 1), -1);
    EXPECT_EQ(region.Write(&region, bytes, 1), -1);
    EXPECT_EQ(semaphore(), 1) << "not left locked";
}

TEST_F(Region, LocksThatFailAreToldInTheirOrderAndTheCopyIsMade)
{
    create();
    const zep::Fd kept(region.fd);
    region.fd = -1;
    region.sem_id = -1;
    EXPECT_EQ(printed([&] { EXPECT_EQ(region.Write(&region, "7", 1), 0); }),
              "[CMMAP_FileLock] error fcntl, reason(Bad file descriptor)\n"
              "[CMMAP_SemLock] error semop, reason(Invalid argument, -1)\n"
              "[CMMAP_SemUnlock] error semop, reason(Invalid argument, -1)\n"
              "[CMMAP_FileUnlock] error fcntl, reason(Bad file descriptor)\n");
    EXPECT_EQ(*static_cast<char*>(region.address), '7');
    EXPECT_EQ(printed([&] { EXPECT_EQ(region.Deinit(&region), -1); }),
              "[CMMAP_DeinitLock] error semctl, reason(Invalid argument)\n");
}

TEST_F(Region, WhatCannotBeOpenedOrMappedIsToldAndCopiesNothing)
{
    auto refused = [&](uint32_t flags, uint32_t size, const string& line) {
        EXPECT_EQ(printed([&] { EXPECT_EQ(init(region, flags, size), -1); }), "[CMMAP_Init] error " + line);
        EXPECT_EQ(region.Read(&region, bytes, 1), -1);
        EXPECT_EQ(region.Write(&region, bytes, 1), -1);
        region.Deinit(&region);
        EXPECT_EQ(region.address, nullptr);
        EXPECT_EQ(region.fd, -1);
    };
    refused(CMMAP_ATTACH, kSize, "open, reason(No such file or directory)\n");
    errno = EEXIST;
    refused(0, kSize, "open, reason(File exists)\n");
    refused(CMMAP_CREATE, 0, "mmap, reason(Invalid argument)\n");
    folder.write("region", string(kSize - 1, 'x'));
    refused(CMMAP_ATTACH, kSize, "mmap, reason(No such device or address)\n");
    EXPECT_FALSE(key_exists());
}

TEST_F(Region, LengthsReachToTheEndOfTheLastPageAndNoFurther)
{
    const uint32_t page = uint32_t(sysconf(_SC_PAGESIZE));
    std::vector<char> large(2 * page);
    ASSERT_EQ(init(region, CMMAP_CREATE | CMMAP_ATTACH, 100), 0);
    EXPECT_EQ(folder.read("region").size(), 100u);
    EXPECT_EQ(region.Write(&region, large.data(), page), 0);
    EXPECT_EQ(region.Write(&region, large.data(), page + 1), -1);
    EXPECT_EQ(region.Read(&region, large.data(), UINT32_MAX), -1);
    EXPECT_EQ(region.Deinit(&region), 0);
    EXPECT_EQ(region.Read(&region, bytes, 1), -1) << "after the end";
    EXPECT_EQ(printed([&] { EXPECT_EQ(region.Deinit(&region), -1); }), "");
}
