// The board's GPIO lines as they stand.
#pragma once

#include "sim/board/registers.hpp"
#include "tools/cli/json.hpp"

#include <span>

namespace vcam {

// A list of the register driver's groups, group 1 first: {group, output, level}, each of the latter two a byte with a bit
// a line. The words are those of the register file, in the order of addresses.
cli::Json lines_json(std::span<const registers::Word> words);
// What stands at a line of the boards: {line, name, kind}, kind "led", "key", "input" or "output".
cli::Json line_names_json();

} // namespace vcam
