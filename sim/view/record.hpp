// The record of the last run: journal and system log as one list of events in camera time.
#pragma once

#include "sim/base/camera.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vcam {

struct Event {
    double seconds = 0; // camera time
    int pid = 0;        // in the camera; 0 for a line of the system log
    std::string source; // of the journal ("mtd", "system"), or "log"
    std::string text;
    int priority = 0; // of a line of the system log
};

// The program of the last run, and when in camera time the run began.
struct Command {
    double began = 0;
    std::string words;
};
Command last_command(const Camera& camera);

// All of it, in the order of time; empty when the camera never ran.
std::vector<Event> run_events(const Camera& camera);

// A stretch of flash that was erased or written without a gap.
struct Stretch {
    std::string partition;
    bool erase = false;
    uint64_t begin = 0, end = 0; // bytes
};
std::optional<Stretch> stretch_of(const Event& event);

struct LastStretch : Stretch {
    bool last_of_run = false; // no other stretch came later
};
std::optional<LastStretch> last_stretch(const std::vector<Event>& events, const std::string& partition);

} // namespace vcam
