// test_rtc: reads the real-time clock, sees it run, writes and reads it back.
#include "factory/applets.h"
#include "factory/options.hpp"
#include "factory/wiring.hpp"

#include "common/ds1339_uapi.h"
#include "common/fd.hpp"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

using zep::Steps;

constexpr char kUsage[] = "usage: test_rtc [-v] [-n]\n    -n reads only\n";
constexpr unsigned kRunSeconds = 2;
// Two seconds before the leap day, so that a wrong leap rule shows.
constexpr DS1339_TIME_S kProbe = {2012, 2, 28, 23, 59, 58, 2};

// Seconds since 1970 of a broken-down time, without any time zone.
int64_t seconds_of(const DS1339_TIME_S& time)
{
    tm parts = {};
    parts.tm_year = time.year - 1900;
    parts.tm_mon = time.month - 1;
    parts.tm_mday = time.day;
    parts.tm_hour = time.hour;
    parts.tm_min = time.minute;
    parts.tm_sec = time.second;
    return timegm(&parts);
}

DS1339_TIME_S time_of(int64_t seconds)
{
    time_t clock = time_t(seconds);
    tm parts = {};
    gmtime_r(&clock, &parts);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
            parts.tm_min,         parts.tm_sec,     parts.tm_wday};
}

// A date that exists: converting it there and back changes nothing.
bool valid(const DS1339_TIME_S& time)
{
    if (time.year < 2000 || time.year > 2099) return false; // what the chip can count
    DS1339_TIME_S again = time_of(seconds_of(time));
    return again.year == time.year && again.month == time.month && again.day == time.day &&
           again.hour == time.hour && again.minute == time.minute && again.second == time.second;
}

class Rtc {
public:
    Rtc(int fd, const Steps& steps) : fd_(fd), steps_(steps) {}

    bool read(int64_t& seconds)
    {
        DS1339_TIME_S time = {};
        bool ok = ioctl(fd_, DS1339_READ, &time) >= 0 && valid(time);
        steps_.say("READ %04d/%02d/%02d %02d:%02d:%02d : %s\n", time.year, time.month, time.day, time.hour,
                   time.minute, time.second, ok ? "successful" : "failed");
        if (ok) seconds = seconds_of(time);
        return ok;
    }

    bool write(int64_t seconds)
    {
        DS1339_TIME_S time = time_of(seconds);
        bool ok = ioctl(fd_, DS1339_WRITE, &time) >= 0;
        steps_.say("WRITE %04d/%02d/%02d %02d:%02d:%02d : %s\n", time.year, time.month, time.day, time.hour,
                   time.minute, time.second, ok ? "successful" : "failed");
        return ok;
    }

    // The time kRunSeconds after `from` reads as 1 to 3 s later.
    bool runs_from(int64_t from)
    {
        sleep(kRunSeconds);
        int64_t now = 0;
        if (!read(now)) return false;
        bool ok = now - from >= 1 && now - from <= 3;
        steps_.say("ADVANCED %d s : %s\n", int(now - from), ok ? "successful" : "failed");
        return ok;
    }

private:
    int fd_;
    const Steps& steps_;
};

int64_t monotonic_ms()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

// Writes the probe time and sees it pass the leap day; the true time comes back on every path.
bool keeps_what_is_written(Rtc& rtc, int64_t true_time)
{
    int64_t started = monotonic_ms();
    bool passed = rtc.write(seconds_of(kProbe)) && rtc.runs_from(seconds_of(kProbe));
    bool restored = rtc.write(true_time + (monotonic_ms() - started + 500) / 1000);
    return passed && restored;
}

} // namespace

int test_rtc_main(int argc, char** argv)
{
    Steps steps;
    bool read_only = false;
    const zep::Option options[] = {{"-v", &steps.verbose}, {"-n", &read_only}};
    if (!zep::parse_options(argc, argv, options, nullptr, 0, kUsage)) return zep::print_verdict(false);
    zep::Fd fd(open(DS1339_DEVICE, O_RDWR | O_CLOEXEC));
    if (!fd) {
        perror("test_rtc: " DS1339_DEVICE);
        exit(-1);
    }
    Rtc rtc(fd.get(), steps);
    int64_t now = 0;
    bool passed = rtc.read(now) && rtc.runs_from(now);
    // The true time is read anew: the first reading is two seconds old.
    if (passed && !read_only) passed = rtc.read(now) && keeps_what_is_written(rtc, now);
    return zep::print_verdict(passed);
}
