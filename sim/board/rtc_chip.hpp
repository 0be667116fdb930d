// The battery-backed real-time clock: it counts in camera time, whoever runs, and keeps what it was set to
// in the file `rtc`. While the camera is off neither counts.
//
//   2012-02-28 23:59:58 2 12500000000 stopped
//
// says date, time, day of the week (0 Sunday) and the camera time in nanoseconds at which that was; then
// what is wrong with the chip: `stopped` (the oscillator stands), `no-leap` (no year has 29 February), `bcd`
// (the registers come out as they are: 16 for 10), `drift=PERMILLE` (it runs fast, or slow with a "-").
#pragma once

#include <cstdint>
#include <string>

namespace vcam::rtc {

struct Time {
    int32_t year, month, day, hour, minute, second, weekday;
};

struct Chip {
    Time set;
    int64_t at_ns = 0;
    bool stopped = false, no_leap = false, bcd = false;
    int32_t drift = 0; // permille, above -1000
};

// A new chip has the camera's calendar time; from then on the two clocks have nothing to do with each other.
Chip load();
bool store(const Chip& chip);

// What it has counted up to now, and what its registers give.
Time counted(const Chip& chip);
Time read(const Chip& chip);
// What it can count: 2000 to 2099, days that exist.
bool valid(const Time& time);
std::string format(const Time& time);            // "2012-02-28 23:59:58"
bool parse(const std::string& text, Time& time); // the weekday is the date's
// The faults, "stopped no-leap"; false for a word that is none.
std::string faults(const Chip& chip);
bool add_fault(Chip& chip, const std::string& name);

} // namespace vcam::rtc
