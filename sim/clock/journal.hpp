// The camera's journal: what was asked of the outside world, in order, one event a line.
#pragma once

#include <string_view>

namespace vcam::journal {

// Appends "<camera seconds>.<6 digits> <pid> <source> <text>". A line end inside the text is written as
// the two characters \n. Without a camera nothing happens; errno survives.
void add(std::string_view source, std::string_view text);
// The same line into another file of the state folder (the watchdog keeps its own log).
void add_to(const char* file, std::string_view source, std::string_view text);

} // namespace vcam::journal
