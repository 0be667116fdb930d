// The verdict of one run of a test.
#pragma once

#include "tools/station/report/report.hpp"

namespace station {

// From what the board sent; fills verdict, reason and text. The words decide: an applet's exit status is 0 whatever it
// found, so it only says why there is no word.
void judge(const Test& test, const Outcome& outcome, Result& result);

// Whether the word stands alone in a line of its output.
bool has_word(const Outcome& outcome, const char* word);

} // namespace station
