// Library calls of the explored program that fail or at which it is killed, each in a run of its own.
#pragma once

#include "sim/explore/bench.hpp"
#include "sim/explore/explorer.hpp"

namespace vcam::explore {

struct FailingContext {
    const Bench& bench;
    const Run& run; // the recorded one
    const Versions& versions;
    const Settings& settings;
    const Progress& progress;
};
// Each call with each error that it can give, once and from then on, and with the program killed at it. Of many calls of one
// name the first, the second, the last and eight drawn ones. And pairs of them, if the settings want some.
void fail_calls(const FailingContext& context, Report& report);

} // namespace vcam::explore
