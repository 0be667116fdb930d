// How the last run ended, in words for people.
#pragma once

#include "sim/view/flash_map.hpp"

#include <string>

namespace vcam {

struct Outcome {
    // "never", "good" and "bad" (an upgrade's verdict), "cut" (broken off), "ended" (anything else: an applet's status is no
    // verdict).
    std::string kind;
    std::string text;  // "power cut while writing mtd1, 48 %"
    double share = -1; // of the flash step that it ended in, 0 to 1; -1 when there was none
};

// `ending` is that of read_status. Reads the whole record of the run.
Outcome outcome_of(const Camera& camera, const FlashMap& flash, const std::string& ending);
// Of a run that goes on: the step of an upgrade, "writing mtd2, 33 %"; "" in any other run.
std::string phase_of(const Camera& camera, const FlashMap& flash);
cli::Json outcome_json(const Outcome& outcome);
// With a sign, so that colour is not the only difference: "✔ Upgrade complete".
std::string outcome_line(const Outcome& outcome);

} // namespace vcam
