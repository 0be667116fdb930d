// test_rtc: reads the real-time clock, sees it run, writes and reads it back.
#include "factory/applets.h"
#include "factory/board_guard.hpp"
#include "factory/options.hpp"
#include "factory/verdict.hpp"

#include "common/ds1339_uapi.h"
#include "common/base/fd.hpp"
#include "common/base/monotonic.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>

namespace {

using zep::BoardGuard;
using zep::monotonic_ms;
using zep::Steps;

constexpr char kUsage[] = "usage: test_rtc [-v] [-n]\n    -n reads only\n";
constexpr int64_t kRunMs = 2500; // half a second behind the second full one
constexpr int64_t kEdgeMs = 2000;
constexpr int64_t kPollMs = 10;
// The clock may run 2 % fast or slow: a broken crystal or divider is far beyond, and a few seconds of
// measurement at a 10 ms tick cannot show less.
constexpr int64_t kPacePercent = 2;
constexpr int64_t kPaceSeconds = 2;        // the shortest measurement
constexpr int64_t kLongestPaceMs = 20'000; // by then a tick is a thousandth of it
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

// A second of the clock, and between which moments it began.
struct Edge {
    DS1339_TIME_S time;
    int64_t before_ms;
    int64_t after_ms;
};

enum class Pace { right, wrong, unknown };

// The pace of a clock that counted `seconds` while `shortest_ms` to `longest_ms` passed; unknown when it
// depends on which of them it was.
constexpr Pace pace_of(int64_t seconds, int64_t shortest_ms, int64_t longest_ms)
{
    const int64_t counted = seconds * 1000 * 100;
    const int64_t slow = 100 - kPacePercent;
    const int64_t fast = 100 + kPacePercent;
    if (counted >= slow * longest_ms && counted <= fast * shortest_ms) return Pace::right;
    if (counted < slow * shortest_ms || counted > fast * longest_ms) return Pace::wrong;
    return Pace::unknown;
}
static_assert(pace_of(2, 1985, 2015) == Pace::right && pace_of(2, 1600, 1700) == Pace::wrong &&
              pace_of(2, 1900, 2100) == Pace::unknown);

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
    bool wait_for_second(Edge& edge)
    {
        DS1339_TIME_S first;
        if (!look(first, edge)) return false;
        const int64_t limit = monotonic_ms() + kEdgeMs;
        do {
            const int64_t last_ms = edge.before_ms;
            if (!BoardGuard::pause_ms(kPollMs) || !look(edge.time, edge)) return false;
            if (edge.time.second != first.second) {
                edge.before_ms = last_ms;
                return valid(edge.time);
            }
        } while (edge.after_ms < limit);
        steps_.say("STOPPED : failed\n");
        return false;
    }

    // Measures from one second's beginning to a later one's, until the pace is known.
    bool keeps_pace(const Edge& from)
    {
        for (;;) {
            Edge now;
            if (!wait_for_second(now)) return false;
            const int64_t seconds = seconds_of(now.time) - seconds_of(from.time);
            const int64_t shortest = now.before_ms - from.after_ms;
            const int64_t longest = now.after_ms - from.before_ms;
            Pace pace = pace_of(seconds, shortest, longest);
            if (longest >= kLongestPaceMs && pace == Pace::unknown)
                pace = pace_of(seconds, (shortest + longest) / 2, (shortest + longest) / 2);
            if (pace == Pace::unknown || (pace == Pace::right && seconds < kPaceSeconds)) continue;
            const bool ok = pace == Pace::right;
            say("READ", now.time, true);
            steps_.say("ADVANCED %lld s : %s\n", static_cast<long long>(seconds), verdict_of(ok));
            if (!ok)
                zep::warn("test_rtc: the clock counted %lld s in %lld ms", static_cast<long long>(seconds),
                          static_cast<long long>((shortest + longest) / 2));
            return ok;
        }
    }

    // Lets it run from a time that has just been written, between two moments.
    bool runs_from(const DS1339_TIME_S& from, int64_t before_ms, int64_t after_ms)
    {
        if (!BoardGuard::pause_ms(kRunMs)) return false;
        const int64_t shortest = monotonic_ms() - after_ms;
        DS1339_TIME_S now;
        if (!read(now)) return false;
        const int64_t longest = monotonic_ms() - before_ms;
        const int64_t advance = seconds_of(now) - seconds_of(from);
        // One more: a chip may go on with the fraction that it had.
        const bool ok = advance >= shortest / 1000 && advance <= longest / 1000 + 1;
        steps_.say("ADVANCED %lld s : %s\n", static_cast<long long>(advance), verdict_of(ok));
        return ok;
    }

private:
    static const char* verdict_of(bool ok) { return ok ? "successful" : "failed"; }

    // Reads without a message; notes when.
    bool look(DS1339_TIME_S& time, Edge& edge)
    {
        time = {};
        edge.before_ms = monotonic_ms();
        const bool ok = ioctl(fd_, DS1339_READ, &time) >= 0;
        edge.after_ms = monotonic_ms() + 1; // rounded up
        if (!ok) steps_.say("READ : %s\n", strerror(errno));
        return ok;
    }

    void say(const char* what, const DS1339_TIME_S& t, bool ok) const
    {
        steps_.say("%s %04d/%02d/%02d %02d:%02d:%02d : %s\n", what, t.year, t.month, t.day, t.hour, t.minute,
                   t.second, verdict_of(ok));
    }

    int fd_;
    const Steps& steps_;
};

// The true time `elapsed_ms` after `then`, with the day of the week counted as it was.
DS1339_TIME_S time_after(const DS1339_TIME_S& then, int64_t elapsed_ms)
{
    const int64_t begin = seconds_of(then);
    const int64_t now = begin + (elapsed_ms + 500) / 1000;
    DS1339_TIME_S time = time_of(now);
    time.weekday = int32_t((then.weekday + now / kDay - begin / kDay) % 7);
    return time;
}

// At a full second, so that the clock loses nothing; a signal waits for it.
bool write_true_time(Rtc& rtc, const DS1339_TIME_S& then, int64_t then_ms)
{
    const int64_t elapsed = monotonic_ms() - then_ms;
    BoardGuard::pause_whole_ms((elapsed + 999) / 1000 * 1000 - elapsed);
    const int64_t written_ms = monotonic_ms();
    const DS1339_TIME_S time = time_after(then, written_ms - then_ms);
    DS1339_TIME_S again;
    if (!rtc.write(time) || !rtc.read(again)) return false;
    const int64_t difference = seconds_of(again) - seconds_of(time);
    return difference >= 0 && difference <= (monotonic_ms() - written_ms) / 1000 + 1;
}

// A driver that refuses once fails the test, but the clock must not stay wrong for it.
bool restore(Rtc& rtc, const DS1339_TIME_S& then, int64_t then_ms)
{
    for (int attempt = 0; attempt < kRestoreAttempts; ++attempt)
        if (write_true_time(rtc, then, then_ms)) return attempt == 0;
    zep::warn("test_rtc: the clock could not be set back to the true time");
    return false;
}

// Writes the probe time and sees it pass the leap day; the true time comes back on every path.
bool keeps_what_is_written(Rtc& rtc, const Edge& start)
{
    const int64_t before_ms = monotonic_ms();
    const bool written = rtc.write(kProbe);
    const bool passed = written && rtc.runs_from(kProbe, before_ms, monotonic_ms() + 1);
    return restore(rtc, start.time, (start.before_ms + start.after_ms) / 2) && passed;
}

bool test(Rtc& rtc, bool read_only)
{
    DS1339_TIME_S now;
    Edge start;
    if (!rtc.read(now) || !rtc.wait_for_second(start) || !rtc.keeps_pace(start)) return false;
    return read_only || (!BoardGuard::interrupted() && keeps_what_is_written(rtc, start));
}

} // namespace

int test_rtc_main(int argc, char** argv)
{
    Steps steps;
    bool read_only = false;
    const zep::Option options[] = {{"-v", &steps.verbose}, {"-n", &read_only}};
    if (!zep::parse_options(argc, argv, options, nullptr, 0, kUsage)) return zep::print_verdict(false);
    BoardGuard guard;
    zep::Fd fd(open(DS1339_DEVICE, O_RDWR | O_CLOEXEC));
    if (!fd) perror("test_rtc: " DS1339_DEVICE);
    if (!fd || !zep::claim_board(fd.get(), 0, argv[0])) guard.give_up();
    Rtc rtc(fd.get(), steps);
    return guard.verdict(test(rtc, read_only));
}
