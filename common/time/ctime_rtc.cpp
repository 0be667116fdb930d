// The DS1339 real-time clock.
#include "common/ctime.h"
#include "common/time/ctime_rtc.hpp"

#include "common/base/fd.hpp"
#include "common/base/report.hpp"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/time.h>

namespace {

zep::Fd open_rtc(const char* function)
{
    zep::Fd fd(open(DS1339_DEVICE, O_RDWR | O_CLOEXEC));
    if (!fd) zep::report_reason(function, "open '%s'", DS1339_DEVICE);
    return fd;
}

} // namespace

int zep::write_rtc(const char* function, const DS1339_TIME_S& record)
{
    zep::Fd fd = open_rtc(function);
    if (!fd) return -1;
    DS1339_TIME_S copy = record;
    int result = ioctl(fd.get(), DS1339_WRITE, &copy);
    if (result < 0) {
        printf("Error writing new time %d\n", result);
        perror("hardwaretest : ioctl RTC_SET_TIME");
        return -1;
    }
    return 0;
}

int32_t CTIME_GetRTC(CTIME_TIME_S* time)
{
    if (!time) return -1;
    zep::Fd fd = open_rtc(__func__);
    if (!fd) return -1;
    DS1339_TIME_S record = {};
    if (ioctl(fd.get(), DS1339_READ, &record) < 0) {
        memset(time, 0, sizeof *time);
        return -1;
    }
    *time = {record.second, record.minute, record.hour, record.day, record.month, record.year};
    return 0;
}

int32_t CTIME_SetRTC(int32_t second, int32_t minute, int32_t hour, int32_t day, int32_t month, int32_t year)
{
    tm parts = {};
    parts.tm_sec = second;
    parts.tm_min = minute;
    parts.tm_hour = hour;
    parts.tm_mday = day;
    parts.tm_mon = int(int64_t(month) - 1);
    parts.tm_year = int(int64_t(year) - 1900);
    timeval clock = {mktime(&parts), 0};
    // Not checked: the RTC must be set even where the system clock may not be.
    settimeofday(&clock, nullptr);
    return zep::write_rtc(__func__, {year, month, day, hour, minute, second, 0});
}
