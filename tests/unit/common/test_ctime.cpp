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

struct Measured {
    int64_t result, before_us, after_us;
};

// What an action gives at a time, and the microseconds before and after it, of the same second.
Measured in_one_second(auto&& action)
{
    for (;;) {
        const timeval before = now();
        const int64_t result = action(before);
        const timeval after = now();
        if (before.tv_sec == after.tv_sec) return {result, before.tv_usec, after.tv_usec};
    }
}

} // namespace

// Both count the borrowed second twice, the second one only when the microseconds have wrapped.
TEST(Elapsed, TheBorrowedSecondStays)
{
    const struct {
        int64_t ago, us; // of the start, before the present second
        int64_t plus;    // to the microseconds of the present second
    } times[] = {
        {0, 0, 0}, {1, 0, 2'000'000}, {1, 999'999, 1'000'001}, {3000, 0, 3'001'000'000}, {-100, 0, 0}};
    for (const auto& c : times) {
        const Measured m =
            in_one_second([&](const timeval& t) { return CTIME_ElapsedUs(t.tv_sec - c.ago, c.us); });
        EXPECT_GE(m.result, m.before_us + c.plus);
        EXPECT_LE(m.result, m.after_us + c.plus);
    }
    const struct {
        int64_t ago, us;
        int32_t limit_ms, result;
    } limits[] = {{1, 0, 1000, 0},
                  {1, 0, 2000, -1},
                  {1, 999'999, 1000, 0},
                  {3000, 0, INT32_MAX, -1},
                  {3'000'000, 0, INT32_MAX, 0},
                  {0, -1, 1000, -1}, // begun just now
                  {0, -1, 0, 0},
                  {0, -1, -1, 0},
                  {-100, 0, 1000, -1}}; // the clock was set back: the wait lasts until it has caught up
    for (const auto& c : limits) {
        auto expired = [&](const timeval& t) {
            return CTIME_IsExpired(t.tv_sec - c.ago, c.us < 0 ? t.tv_usec : c.us, c.limit_ms);
        };
        EXPECT_EQ(in_one_second(expired).result, c.result) << c.ago << " " << c.limit_ms;
    }
    const Measured over = in_one_second(
        [](const timeval& t) { return CTIME_IsExpired(t.tv_sec, 0, int32_t(t.tv_usec / 1000)); });
    EXPECT_EQ(over.result, 0);
}

TEST(FileSize, IsItsEndAndZeroForWhatCannotBeOpened)
{
    TempFolder folder;
    const std::string path = folder.write("five", "12345");
    EXPECT_EQ(CUTIL_GetFileSize(path.c_str()), 5);
    EXPECT_EQ(truncate(path.c_str(), 0x90000000LL), 0);
    EXPECT_EQ(CUTIL_GetFileSize(path.c_str()), 0x90000000LL);
    for (const char* none : {"/none", "", static_cast<const char*>(nullptr)})
        EXPECT_EQ(CUTIL_GetFileSize(none), 0);
}
