// The commands of zep-station.
#pragma once

#include "tools/cli/command_line.hpp"

namespace station {

// Of the tool.
constexpr int kPassed = 0, kNotPassed = 1, kTrouble = 2;

int run(const cli::Arguments& arguments);
int check(const cli::Arguments& arguments);

} // namespace station
