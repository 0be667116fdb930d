// Elapsed time and the size of files.
#include "common/ctime.h"
#include "common/cutil_file.h"
#include "tests/support/temp_folder.hpp"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

timeval now()
{
    timeval t;
    gettimeofday(&t, nullptr);
    return t;
}

// Early enough in its second that the next steps stay within it.
timeval early_in_a_second()
{
    timeval t = now();
    while (t.tv_usec > 500'000) {
        usleep(10'000);
        t = now();
    }
    return t;
}

} // namespace

TEST(Elapsed, WithinTheSecondItIsTheDifference)
{
    timeval start, after;
    int64_t us;
    int32_t expired;
    do { // a busy PC may take the rest of the second
        start = early_in_a_second();
        expired = CTIME_IsExpired(start.tv_sec, start.tv_usec, 900);
        usleep(20'000);
        us = CTIME_ElapsedUs(start.tv_sec, start.tv_usec);
        after = now();
    } while (after.tv_sec != start.tv_sec || after.tv_usec - start.tv_usec > 400'000);
    EXPECT_EQ(expired, -1);
    EXPECT_GE(us, 20'000);
    EXPECT_LE(us, after.tv_usec - start.tv_usec);
    EXPECT_EQ(CTIME_IsExpired(start.tv_sec, start.tv_usec, 20), 0);
    EXPECT_EQ(CTIME_IsExpired(start.tv_sec, start.tv_usec, 0), 0);
    EXPECT_EQ(CTIME_IsExpired(start.tv_sec, start.tv_usec, -1), 0);
}

// Both count the borrowed second twice, the second one only when the microseconds have wrapped.
TEST(Elapsed, TheBorrowedSecondStays)
{
    timeval t = early_in_a_second();
    int64_t us = CTIME_ElapsedUs(t.tv_sec - 1, 0); // truly 1.0 to 1.5 s
    EXPECT_GE(us, 2'000'000);
    EXPECT_LT(us, 3'000'000);
    EXPECT_EQ(CTIME_IsExpired(t.tv_sec - 1, 0, 1000), 0);
    EXPECT_EQ(CTIME_IsExpired(t.tv_sec - 1, 0, 2000), -1);
    // Half a second to a second ago, in the second before: reads as more than 1.0 s.
    EXPECT_EQ(CTIME_IsExpired(t.tv_sec - 1, 999'999, 1000), 0);
    us = CTIME_ElapsedUs(t.tv_sec - 1, 999'999);
    EXPECT_GE(us, 1'000'001);
    EXPECT_LT(us, 2'000'000);
}

TEST(Elapsed, ALimitOrAStartBeyond32BitsOfMicroseconds)
{
    timeval t = early_in_a_second();
    EXPECT_EQ(CTIME_IsExpired(t.tv_sec - 3000, 0, INT32_MAX), -1); // 2147483647 ms
    EXPECT_EQ(CTIME_IsExpired(t.tv_sec - 3'000'000, 0, INT32_MAX), 0);
    int64_t us = CTIME_ElapsedUs(t.tv_sec - 3000, 0);
    EXPECT_GE(us, 3'001'000'000);
    EXPECT_LT(us, 3'002'000'000);
}

// The clock was set back: the wait lasts until it has caught up.
TEST(Elapsed, AStartInTheFutureIsNoTimeAtAll)
{
    timeval t = early_in_a_second();
    EXPECT_EQ(CTIME_IsExpired(t.tv_sec + 100, 0, 900), -1);
    EXPECT_LT(CTIME_ElapsedUs(t.tv_sec + 100, 0), 1'000'000);
}

TEST(FileSize, IsItsEndAndZeroForWhatCannotBeOpened)
{
    TempFolder folder;
    const std::string path = folder.write("five", "12345");
    EXPECT_EQ(CUTIL_GetFileSize(path.c_str()), 5);
    EXPECT_EQ(truncate(path.c_str(), 0x90000000LL), 0);
    EXPECT_EQ(CUTIL_GetFileSize(path.c_str()), 0x90000000LL);
    EXPECT_EQ(CUTIL_GetFileSize((path + ".none").c_str()), 0);
    EXPECT_EQ(CUTIL_GetFileSize(""), 0);
    EXPECT_EQ(CUTIL_GetFileSize(nullptr), 0);
}
