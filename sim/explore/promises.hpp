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
// Of the same command given again, and the state that it leaves. It ends as the recorded run did.
void judge_completion(const Judged& again, const Description& left, const std::string& point,
                      std::vector<Broken>& broken);

} // namespace vcam::explore
