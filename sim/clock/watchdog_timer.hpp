// The watchdog's timer, in the page that the camera's processes share.
#pragma once

#include <cstdint>

namespace vcam::watchdog {

inline constexpr int64_t kUnit = 2'000'000'000; // the driver counts in two seconds
inline constexpr int32_t kDefaultUnits = 30, kLeastUnits = 1, kMostUnits = 60;

void arm();
void feed(bool magic); // magic: a 'V' was in what was written
// False for what the driver does not take; else it is in force, and the watchdog fed.
bool set_timeout(int32_t units);
int32_t timeout();
int32_t units_left();
// A descriptor of the device was closed: disarms when it was the last one and the magic stands.
void released();
// Called when the deadline has passed: resets the camera, unless the device was released in time.
void expire();

struct Report {
    bool armed, fired;
    int32_t timeout_units, feeds;
    int64_t longest_gap_ns; // between arming, feeds and closing
    int64_t since_feed_ns;  // while armed
};
Report report();

} // namespace vcam::watchdog
