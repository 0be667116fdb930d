// What is promised of every state and of every run.
#pragma once

#include "sim/explore/bench.hpp"
#include "sim/explore/report.hpp"

namespace vcam::explore {

// Of the states that cuts leave.
void judge_points(const Run& run, const Cuts& cuts, std::vector<Broken>& broken);

struct Judged {
    const Run& run; // the recorded one
    const Versions& versions;
    const Outcome& outcome;  // of the run that is judged
    bool was_killed = false; // and therefore may end by a signal
    // What it found, where another run came before; else the user's settings.
    const SettingsState* found = nullptr;
};
// Of a run, whose name is `point`. Returns the state that it left.
Description judge_run(const Judged& judged, const std::string& point, std::vector<Broken>& broken);
// Of the state that the same command leaves when it is given again.
void judge_completion(const Description& left, const std::string& point, std::vector<Broken>& broken);

} // namespace vcam::explore
