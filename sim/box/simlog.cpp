// The camera's journal and clock as its first process and its tools use them.
#include "sim/box/simlog.hpp"
#include "sim/box/text.hpp"
#include "sim/drv/clock.hpp"
#include "sim/drv/journal.hpp"
#include "sim/drv/state.hpp"

namespace vcam {

double camera_seconds() { return double(clock::now_ns()) / 1e9; }

void note_event(const char* source, const std::string& words) { journal::add(source, words); }

} // namespace vcam
