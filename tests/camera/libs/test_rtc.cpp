// The real-time clock's functions: what they give back, print and ask of the driver.
#include "tests/camera/libs/inside.hpp"

#include "common/ctime.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/ioctl.h>

namespace {

string written() { return read_file("/run/vcam/rtc").substr(0, 21); } // date, time and weekday

string fault(const string& plan) { return write_file("/run/vcam/faults", plan); }

} // namespace

TEST(Rtc, SettingSetsBothClocksAndReadingGivesTheFieldsInTheOtherOrder)
{
    ASSERT_EQ(CTIME_SetRTC(58, 59, 23, 28, 2, 2012), 0);
    EXPECT_EQ(written(), "2012-02-28 23:59:58 0"); // Tuesday, but the weekday is not computed
    EXPECT_EQ(time(nullptr), 1330473598);
    timespec pause = {2, 500'000'000};
    nanosleep(&pause, nullptr);
    CTIME_TIME_S now = {};
    ASSERT_EQ(CTIME_GetRTC(&now), 0);
    EXPECT_EQ(now.year, 2012);
    EXPECT_EQ(now.month, 2);
    EXPECT_EQ(now.day, 29);
    EXPECT_EQ(now.hour, 0);
    EXPECT_EQ(now.minute, 0);
    EXPECT_EQ(now.second, 0);
    EXPECT_EQ(CTIME_GetRTC(nullptr), -1);
}

// A server's time comes with its weekday.
TEST(Rtc, AReplySetsBothClocks)
{
    uint8_t reply[CTIME_NTP_PACKET_SIZE] = {};
    const uint32_t seconds = 1330473598u + 2208988800u; // 2012-02-28 23:59:58
    for (int i = 0; i < 4; ++i) reply[40 + i] = uint8_t(seconds >> (24 - 8 * i));
    ASSERT_EQ(setTime(reply, 1, 18), 0);
    EXPECT_EQ(written(), "2012-02-29 00:59:58 3");
    EXPECT_EQ(time(nullptr), 1330473598 + 3600);
}

TEST(Rtc, FailuresAreToldAndTheSystemClockStaysSet)
{
    fault("ds1339 open 0 -1 ENOENT\n");
    int result = 0;
    EXPECT_EQ(printed([&] { result = CTIME_SetRTC(1, 2, 3, 4, 5, 2013); }),
              "[CTIME_SetRTC] error, reason(open '/dev/ds1339')\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(time(nullptr), 1367636521); // 2013-05-04 03:02:01
    const uint8_t reply[CTIME_NTP_PACKET_SIZE] = {};
    EXPECT_EQ(printed([&] { result = setTime(reply, 0, 18); }),
              "[setTime] error, reason(open '/dev/ds1339')\n");
    EXPECT_EQ(result, -1);
    CTIME_TIME_S now = {1, 1, 1, 1, 1, 1};
    EXPECT_EQ(printed([&] { result = CTIME_GetRTC(&now); }),
              "[CTIME_GetRTC] error, reason(open '/dev/ds1339')\n");
    EXPECT_EQ(result, -1);

    fault("ds1339 read 0 -1 EIO\nds1339 write 0 -1 EIO\n");
    EXPECT_EQ(printed([&] { result = CTIME_GetRTC(&now); }), "");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(now.year + now.month + now.day + now.hour + now.minute + now.second, 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(printed([&] { result = CTIME_SetRTC(1, 2, 3, 4, 5, 2014); }), "Error writing new time -1\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "hardwaretest : ioctl RTC_SET_TIME: Input/output error\n");
    EXPECT_EQ(result, -1);
    fault("");
    // What the chip cannot count is refused by its driver.
    testing::internal::CaptureStderr();
    EXPECT_EQ(CTIME_SetRTC(0, 0, 0, 1, 1, 1999), -1);
    testing::internal::GetCapturedStderr();
}
