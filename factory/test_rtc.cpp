// test_rtc: reads the real-time clock, sees it run, writes and reads it back.
#include "factory/applets.h"
#include "factory/options.hpp"
#include "factory/waiting.hpp"
#include "factory/wiring.hpp"

#include "common/ds1339_uapi.h"
#include "common/base/fd.hpp"
#include "common/base/monotonic.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>

namespace {

using zep::Interruptible;
using zep::monotonic_ms;
using zep::Steps;

constexpr char kUsage[] = "usage: test_rtc [-v] [-n]\n    -n reads only\n";
constexpr int64_t kRunMs = 2500; // half a second behind the second full one
constexpr int64_t kEdgeMs = 2000;
constexpr int64_t kPollMs = 10;
constexpr int kRestoreAttempts = 3;
// Two seconds before the leap day, so that a wrong leap rule shows.
constexpr DS1339_TIME_S kProbe = {2012, 2, 28, 23, 59, 58, 2};

// The chip counts from 2000 to 2099, where every fourth year is a leap year.
constexpr int32_t kFirstYear = 2000;
constexpr int32_t kLastYear = 2099;
constexpr int32_t kFirstWeekday = 6; // 1 January 2000
constexpr int64_t kDay = 86400;

constexpr int32_t days_of_month(int32_t year, int32_t month)
{
    constexpr int32_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return kDays[month - 1] + (month == 2 && year % 4 == 0);
}

// A date that exists.
constexpr bool valid(const DS1339_TIME_S& t)
{
    return t.year >= kFirstYear && t.year <= kLastYear && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
           t.day <= days_of_month(t.year, t.month) && t.hour >= 0 && t.hour <= 23 && t.minute >= 0 &&
           t.minute <= 59 && t.second >= 0 && t.second <= 59 && t.weekday >= 0 && t.weekday <= 6;
}

// Seconds since the beginning of 2000; 32 bits of time_t would end before the chip does.
constexpr int64_t seconds_of(const DS1339_TIME_S& t)
{
    int64_t days = t.day - 1;
    for (int32_t year = kFirstYear; year < t.year; ++year) days += 365 + (year % 4 == 0);
    for (int32_t month = 1; month < t.month; ++month) days += days_of_month(t.year, month);
    return days * kDay + t.hour * 3600 + t.minute * 60 + t.second;
}

constexpr DS1339_TIME_S time_of(int64_t seconds)
{
    int64_t days = seconds / kDay;
    const int32_t rest = int32_t(seconds % kDay);
    DS1339_TIME_S t = {
        kFirstYear, 1, 1, rest / 3600, rest / 60 % 60, rest % 60, int32_t((days + kFirstWeekday) % 7)};
    for (; days >= 365 + (t.year % 4 == 0); ++t.year) days -= 365 + (t.year % 4 == 0);
    for (; days >= days_of_month(t.year, t.month); ++t.month) days -= days_of_month(t.year, t.month);
    t.day += int32_t(days);
    return t;
}
static_assert(time_of(seconds_of(kProbe)).weekday == kProbe.weekday &&
              time_of(seconds_of(kProbe) + 2).day == 29 &&
              time_of(seconds_of({2099, 12, 31, 0, 0, 0, 0})).year == 2099);

class Rtc {
public:
    Rtc(int fd, const Steps& steps) : fd_(fd), steps_(steps) {}

    bool read(DS1339_TIME_S& time)
    {
        time = {};
        if (ioctl(fd_, DS1339_READ, &time) < 0) {
            steps_.say("READ : %s\n", strerror(errno));
            return false;
        }
        say("READ", time, valid(time));
        return valid(time);
    }

    bool write(const DS1339_TIME_S& time)
    {
        DS1339_TIME_S copy = time;
        bool ok = ioctl(fd_, DS1339_WRITE, &copy) >= 0;
        say("WRITE", time, ok);
        return ok;
    }

    // Waits for the next second to begin: only then is the time known to the tick.
    bool wait_for_second(DS1339_TIME_S& time, int64_t& at_ms)
    {
        DS1339_TIME_S before;
        if (!read(before)) return false;
        const int64_t limit = monotonic_ms() + kEdgeMs;
        do {
            if (!Interruptible::pause_ms(kPollMs) || ioctl(fd_, DS1339_READ, &time) < 0) return false;
            at_ms = monotonic_ms();
        } while (time.second == before.second && at_ms < limit);
        if (time.second == before.second) steps_.say("STOPPED : failed\n");
        return time.second != before.second && valid(time);
    }

    // Lets it run and expects it two seconds later.
    bool runs_from(const DS1339_TIME_S& from)
    {
        DS1339_TIME_S now;
        if (!Interruptible::pause_ms(kRunMs) || !read(now)) return false;
        const int64_t advance = seconds_of(now) - seconds_of(from);
        const bool ok = advance >= 2 && advance <= 3;
        steps_.say("ADVANCED %lld s : %s\n", static_cast<long long>(advance), ok ? "successful" : "failed");
        return ok;
    }

private:
    void say(const char* what, const DS1339_TIME_S& t, bool ok) const
    {
        steps_.say("%s %04d/%02d/%02d %02d:%02d:%02d : %s\n", what, t.year, t.month, t.day, t.hour, t.minute,
                   t.second, ok ? "successful" : "failed");
    }

    int fd_;
    const Steps& steps_;
};

// The true time so many milliseconds after `then`, with the day of the week counted as it was.
DS1339_TIME_S time_after(const DS1339_TIME_S& then, int64_t elapsed_ms)
{
    const int64_t begin = seconds_of(then);
    const int64_t now = begin + (elapsed_ms + 500) / 1000;
    DS1339_TIME_S time = time_of(now);
    time.weekday = int32_t((then.weekday + now / kDay - begin / kDay) % 7);
    return time;
}

// At a full second, so that the clock loses nothing; at once when a signal came.
bool write_true_time(Rtc& rtc, const DS1339_TIME_S& then, int64_t then_ms)
{
    const int64_t elapsed = monotonic_ms() - then_ms;
    Interruptible::pause_ms((elapsed + 999) / 1000 * 1000 - elapsed);
    const DS1339_TIME_S time = time_after(then, monotonic_ms() - then_ms);
    DS1339_TIME_S again;
    if (!rtc.write(time) || !rtc.read(again)) return false;
    const int64_t difference = seconds_of(again) - seconds_of(time);
    return difference == 0 || difference == 1;
}

// A driver that refuses once fails the test, but the clock must not stay wrong for it.
bool restore(Rtc& rtc, const DS1339_TIME_S& then, int64_t then_ms)
{
    for (int attempt = 0; attempt < kRestoreAttempts; ++attempt)
        if (write_true_time(rtc, then, then_ms)) return attempt == 0;
    return false;
}

// Writes the probe time and sees it pass the leap day; the true time comes back on every path.
bool keeps_what_is_written(Rtc& rtc, const DS1339_TIME_S& then, int64_t then_ms)
{
    const bool passed = rtc.write(kProbe) && rtc.runs_from(kProbe);
    return restore(rtc, then, then_ms) && passed;
}

bool test(Rtc& rtc, bool read_only)
{
    DS1339_TIME_S start;
    int64_t start_ms = 0;
    if (!rtc.wait_for_second(start, start_ms) || !rtc.runs_from(start)) return false;
    return read_only || keeps_what_is_written(rtc, start, start_ms);
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
    Interruptible interruptible;
    Rtc rtc(fd.get(), steps);
    return zep::print_verdict(test(rtc, read_only));
}
