// Whether any thread could run, as the kernel's process files tell it.
#pragma once

#include <span>

namespace vcam::quiet {

bool alive(int tid); // exists and is no zombie
// True when every thread but the asking one is blocked.
bool whole_space();                       // every process that /proc shows
bool families(std::span<const int> pids); // these and what descends from them; 0 is passed over

} // namespace vcam::quiet
