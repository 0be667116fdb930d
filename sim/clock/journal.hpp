// The camera's journal: what was asked of the outside world, in order, one event a line.
#pragma once

#include <string_view>

namespace vcam::journal {

// What writes into it: drivers, calls, tools of the camera, and its end.
inline constexpr const char* kSources[] = {
    "mtd",      "watchdog", "ds1339", "gpioi2c",      "hi3516_reg", "ttyAMA1", "ttyAMA2", "sys",
    "acodec",   "mount",    "umount", "settimeofday", "system",     "kill",    "insmod",  "rmmod",
    "ifconfig", "reg",      "exec",   "reboot",       "power",      "cuse"};

// Appends "<camera seconds>.<6 digits> <pid> <source> <text>". A line end inside the text is written as
// the two characters \n. The source is one of kSources. Without a camera nothing happens; errno survives.
void add(std::string_view source, std::string_view text);
// The same line into another file of the state folder (the watchdog keeps its own log).
void add_to(const char* file, std::string_view source, std::string_view text);

} // namespace vcam::journal
