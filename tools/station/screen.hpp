// The course of a line in the terminal, or as lines in a pipe.
#pragma once

#include "tools/station/runner.hpp"

#include <memory>

namespace station {

// A table that is drawn anew in place where standard output is a terminal, else a line for each verdict. With
// `verbose` each test's text stands below its line.
std::unique_ptr<Screen> make_screen(bool verbose);
// No screen: for an output that is taken by a report.
std::unique_ptr<Screen> no_screen();

} // namespace station
