// The camera's journal and clock as its first process and its tools use them.
#pragma once

#include <string>

namespace vcam {

// Inside the camera the state folder stands here.
inline constexpr const char* kStateInside = "/run/vcam";

// Seconds of camera time since the camera was made.
double camera_seconds();
// One event: "<seconds> <pid> <source> <text>".
void note_event(const char* source, const std::string& text);

} // namespace vcam
