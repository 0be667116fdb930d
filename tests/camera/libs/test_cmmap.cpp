// A region where no semaphore can be had.
#include "common/cmmap.h"
#include "tests/camera/libs/inside.hpp"

#include <sys/sem.h>
#include <sys/stat.h>

TEST(SharedMemory, WithoutASemaphoreTheRegionWorksUnderTheRecordLock)
{
    isolated(CLONE_NEWIPC, [] {
        while (semget(IPC_PRIVATE, 1, 0600) >= 0) { // all that the system allows; they go with the namespace
        }
        CMMAP_S region;
        EXPECT_EQ(printed([&] { EXPECT_EQ(CMMAP_Init(&region, "/tmp/region", 77, CMMAP_CREATE, 8), 0); }),
                  "[CMMAP_InitLock] error, reason(No space left on device,-1,0)\n");
        EXPECT_EQ(region.owner, 0);
        EXPECT_EQ(printed([&] { EXPECT_EQ(region.Write(&region, "eight..", 8), 0); }),
                  "[CMMAP_SemLock] error semop, reason(Invalid argument, -1)\n"
                  "[CMMAP_SemUnlock] error semop, reason(Invalid argument, -1)\n");
        EXPECT_EQ(region.Deinit(&region), 0);
        EXPECT_EQ(read_file("/tmp/region"), string("eight..\0", 8));
    });
}

// A full file system has no room for the zeros: the region is refused, not left to a bus error.
TEST(SharedMemory, AFullFileSystemRefusesTheRegion)
{
    isolated(CLONE_NEWNS | CLONE_NEWIPC, [] {
        mkdir("/tmp/small", 0700);
        ASSERT_EQ(mount("small", "/tmp/small", "tmpfs", 0, "size=8k"), 0);
        CMMAP_S region;
        EXPECT_EQ(printed([&] {
                      EXPECT_EQ(CMMAP_Init(&region, "/tmp/small/region", 77, CMMAP_CREATE, 16384), -1);
                  }),
                  "[CMMAP_Init] error mmap, reason(No such device or address)\n");
        EXPECT_EQ(region.Deinit(&region), 0);
    });
}
