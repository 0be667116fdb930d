// The camera's journal and clock as its first process and its tools use them.
#include "sim/guest/simlog.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/clock/journal.hpp"
#include "sim/base/state.hpp"

namespace vcam {

double camera_seconds() { return double(clock::now_ns()) / 1e9; }

void note_event(const char* source, const std::string& words) { journal::add(source, words); }

} // namespace vcam
