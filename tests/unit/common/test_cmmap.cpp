// Shared regions: processes and threads that copy under the locks, and holders that die.
#include "common/cmmap.h"
#include "tests/support/socket_helpers.hpp"
#include "tests/support/temp_folder.hpp"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace {

using std::string;

// A semaphore key for one test. A process of its own removes what is left of it when the test's process ends,
// however it ends: keys outlive everybody.
class Key {
public:
    Key()
    {
        static int count = 0;
        value = int32_t(0x5A000000 | (getpid() & 0xFFFF) << 8 | (++count & 0xFF));
        EXPECT_EQ(pipe2(alive_, O_CLOEXEC), 0);
        guard_ = fork();
        if (guard_ != 0) return;
        setsid();
        close(alive_[1]);
        char byte;
        while (read(alive_[0], &byte, 1) < 0) {
        }
        semctl(semget(value, 1, 0), 0, IPC_RMID);
        _exit(0);
    }
    ~Key()
    {
        close(alive_[1]);
        close(alive_[0]);
        waitpid(guard_, nullptr, 0);
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    [[nodiscard]] bool exists() const { return semget(value, 1, 0) >= 0; }
    void close_in_child() const { close(alive_[1]); }

    int32_t value;

private:
    int alive_[2];
    pid_t guard_;
};

constexpr uint32_t kSize = 4096;
constexpr uint32_t kWords = kSize / sizeof(uint32_t);

struct Region : testing::Test {
    TempFolder folder;
    Key key;
    string path = folder / "region";
    CMMAP_S region;
    std::vector<pid_t> children;

    int init(CMMAP_S& r, uint32_t flags, uint32_t size = kSize) const
    {
        return CMMAP_Init(&r, path.c_str(), key.value, flags, size);
    }
    void create() { ASSERT_EQ(init(region, CMMAP_CREATE), 0); }
    void TearDown() override
    {
        for (pid_t child : children) kill(child, SIGKILL);
        for (pid_t child : children) waitpid(child, nullptr, 0);
        if (region.Deinit) region.Deinit(&region);
    }

    // A second process that attaches for itself; 0 is its good end.
    pid_t start(const std::function<int(CMMAP_S&)>& work)
    {
        pid_t child = fork();
        if (child == 0) {
            key.close_in_child();
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            CMMAP_S own;
            _exit(init(own, CMMAP_ATTACH) == 0 ? work(own) : 99);
        }
        children.push_back(child);
        return child;
    }
    int end_of(pid_t child)
    {
        int status = 0;
        waitpid(child, &status, 0);
        std::erase(children, child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

    Region() { region.Deinit = nullptr; }
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

int count_under_lock(CMMAP_S& region, int rounds)
{
    for (int i = 0; i < rounds; ++i) {
        region.Lock(&region);
        bool good = count_up(static_cast<uint32_t*>(region.address));
        region.Unlock(&region);
        if (!good) return 1;
    }
    return 0;
}

uint32_t counted(CMMAP_S& region)
{
    uint32_t words[kWords] = {};
    EXPECT_EQ(region.Read(&region, words, sizeof words), 0);
    return words[kWords - 1];
}

} // namespace

TEST_F(Region, NoneOfManyIncrementsOfFourProcessesIsLost)
{
    create();
    constexpr int kRounds = 300;
    std::vector<pid_t> workers;
    for (int i = 0; i < 4; ++i)
        workers.push_back(start([](CMMAP_S& own) { return count_under_lock(own, kRounds); }));
    for (pid_t worker : workers) EXPECT_EQ(end_of(worker), 0);
    EXPECT_EQ(counted(region), 4u * kRounds);
}

// A process's threads share the record lock; the semaphore keeps them apart, from each other and from others.
TEST_F(Region, ThreadsOfTwoProcessesAreKeptApartToo)
{
    create();
    auto two_threads = [](CMMAP_S& own) {
        int first = 0, second = 0;
        std::thread one([&] { first = count_under_lock(own, 200); });
        std::thread two([&] { second = count_under_lock(own, 200); });
        one.join();
        two.join();
        return first | second;
    };
    pid_t other = start(two_threads);
    EXPECT_EQ(two_threads(region), 0);
    EXPECT_EQ(end_of(other), 0);
    EXPECT_EQ(counted(region), 800u);
}

TEST_F(Region, AHolderKilledInTheMiddleOfACopyLeavesBothLocksFree)
{
    create();
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    pid_t holder = start([&](CMMAP_S& own) {
        own.Lock(&own);
        memset(own.address, 0xAA, kSize / 2);
        if (write(ready[1], "x", 1) == 1) pause();
        return 1;
    });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_EQ(semctl(region.sem_id, 0, GETVAL), 0) << "held";
    kill(holder, SIGKILL);
    EXPECT_EQ(end_of(holder), 1000 + SIGKILL);
    EXPECT_EQ(semctl(region.sem_id, 0, GETVAL), 1);
    std::vector<uint8_t> ours(kSize, 0x55), seen(kSize);
    EXPECT_EQ(region.Write(&region, ours.data(), kSize), 0);
    pid_t reader =
        start([&](CMMAP_S& own) { return own.Read(&own, seen.data(), kSize) == 0 && seen == ours ? 0 : 1; });
    EXPECT_EQ(end_of(reader), 0);
    close(ready[0]);
    close(ready[1]);
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
    char seen[4];
    EXPECT_EQ(region.Read(&region, seen, sizeof seen), 0);
    EXPECT_STREQ(seen, "new");
    EXPECT_EQ(second.Deinit(&second), 0);
    EXPECT_TRUE(key.exists());
    EXPECT_EQ(region.Deinit(&region), 0);
    EXPECT_FALSE(key.exists()) << "the owner's end removes it";
    EXPECT_EQ(folder.read("region").substr(0, 3), "new") << "the file stays";
}

TEST_F(Region, AFileThatASecondCreatorShortenedEndsNobodyByABusError)
{
    create();
    pid_t other = start([&](CMMAP_S&) {
        CMMAP_S shorter;
        return init(shorter, CMMAP_CREATE, 100);
    });
    EXPECT_EQ(end_of(other), 0);
    std::vector<char> bytes(kSize);
    EXPECT_EQ(region.Read(&region, bytes.data(), 100), 0);
    ASSERT_EQ(truncate(path.c_str(), 0), 0);
    EXPECT_EQ(region.Read(&region, bytes.data(), 1), -1);
    EXPECT_EQ(region.Write(&region, bytes.data(), 1), -1);
    EXPECT_EQ(semctl(region.sem_id, 0, GETVAL), 1) << "not left locked";
}

TEST_F(Region, CreatingWhileAnotherCopiesNeverTakesTheFileAway)
{
    create();
    pid_t reader = start([](CMMAP_S& own) {
        char bytes[kSize];
        for (int i = 0; i < 3000; ++i)
            if (own.Read(&own, bytes, sizeof bytes) != 0) return 1;
        return 0;
    });
    for (int i = 0; i < 1000; ++i) {
        CMMAP_S again;
        ASSERT_EQ(init(again, CMMAP_CREATE), 0);
        ASSERT_EQ(again.Deinit(&again), 0);
    }
    EXPECT_EQ(end_of(reader), 0);
}

// The owner removes the set while others still use it: they are told and go on under the record lock alone.
TEST_F(Region, WithoutTheSemaphoreTheRecordLockStillExcludesOtherProcesses)
{
    create();
    CMMAP_S attached;
    ASSERT_EQ(init(attached, CMMAP_ATTACH), 0);
    EXPECT_EQ(attached.owner, 0);
    int id = attached.sem_id;
    ASSERT_EQ(region.Deinit(&region), 0);
    char byte = 1;
    string number = std::to_string(id);
    EXPECT_EQ(printed([&] { EXPECT_EQ(attached.Write(&attached, &byte, 1), 0); }),
              "[CMMAP_SemLock] error semop, reason(Invalid argument, " + number +
                  ")\n[CMMAP_SemUnlock] error semop, reason(Invalid argument, " + number + ")\n");
    ASSERT_EQ(init(region, CMMAP_CREATE), 0);
    std::vector<pid_t> workers;
    for (int i = 0; i < 3; ++i)
        workers.push_back(start([](CMMAP_S& own) {
            own.sem_id = -1;
            if (!freopen("/dev/null", "w", stdout)) return 98;
            return count_under_lock(own, 200);
        }));
    for (pid_t worker : workers) EXPECT_EQ(end_of(worker), 0);
    EXPECT_EQ(counted(region), 600u);
    attached.Deinit(&attached);
}

TEST_F(Region, LocksThatFailAreToldInTheirOrderAndTheCopyIsMade)
{
    create();
    int fd = region.fd, id = region.sem_id;
    region.fd = -1;
    region.sem_id = -1;
    char byte = 7;
    EXPECT_EQ(printed([&] { EXPECT_EQ(region.Write(&region, &byte, 1), 0); }),
              "[CMMAP_FileLock] error fcntl, reason(Bad file descriptor)\n"
              "[CMMAP_SemLock] error semop, reason(Invalid argument, -1)\n"
              "[CMMAP_SemUnlock] error semop, reason(Invalid argument, -1)\n"
              "[CMMAP_FileUnlock] error fcntl, reason(Bad file descriptor)\n");
    EXPECT_EQ(*static_cast<char*>(region.address), 7);
    EXPECT_EQ(printed([&] { EXPECT_EQ(region.Deinit(&region), -1); }),
              "[CMMAP_DeinitLock] error semctl, reason(Invalid argument)\n");
    semctl(id, 0, IPC_RMID);
    close(fd);
}

TEST_F(Region, WhatCannotBeOpenedOrMappedIsToldAndCopiesNothing)
{
    char bytes[8];
    auto refused = [&](uint32_t flags, uint32_t size, const string& line) {
        EXPECT_EQ(printed([&] { EXPECT_EQ(init(region, flags, size), -1); }), line);
        EXPECT_EQ(region.Read(&region, bytes, 1), -1);
        EXPECT_EQ(region.Write(&region, bytes, 1), -1);
        region.Deinit(&region);
        EXPECT_EQ(region.address, nullptr);
        EXPECT_EQ(region.fd, -1);
    };
    refused(CMMAP_ATTACH, kSize, "[CMMAP_Init] error open, reason(No such file or directory)\n");
    errno = EEXIST;
    refused(0, kSize, "[CMMAP_Init] error open, reason(File exists)\n");
    refused(CMMAP_CREATE, 0, "[CMMAP_Init] error mmap, reason(Invalid argument)\n");
    folder.write("region", string(kSize - 1, 'x'));
    refused(CMMAP_ATTACH, kSize, "[CMMAP_Init] error mmap, reason(No such device or address)\n");
    EXPECT_FALSE(key.exists());
}

TEST_F(Region, LengthsReachToTheEndOfTheLastPageAndNoFurther)
{
    uint32_t page = uint32_t(sysconf(_SC_PAGESIZE));
    std::vector<char> bytes(2 * page);
    ASSERT_EQ(init(region, CMMAP_CREATE | CMMAP_ATTACH, 100), 0);
    EXPECT_EQ(folder.read("region").size(), 100u);
    EXPECT_EQ(region.Write(&region, bytes.data(), page), 0);
    EXPECT_EQ(region.Write(&region, bytes.data(), page + 1), -1);
    EXPECT_EQ(region.Read(&region, bytes.data(), UINT32_MAX), -1);
    EXPECT_EQ(region.Deinit(&region), 0);
    EXPECT_EQ(region.Read(&region, bytes.data(), 1), -1) << "after the end";
    EXPECT_EQ(printed([&] { EXPECT_EQ(region.Deinit(&region), -1); }), "");
}
