// What the commands of vcam say of a wrong command line.
#pragma once

#include "sim/base/text.hpp"
#include "tools/cli/command_line.hpp"

namespace vcam {

using cli::Arguments;

// Throws cli::WrongUse of that text: exit status 2.
[[noreturn]] inline void wrong_use(const std::string& reason) { throw cli::WrongUse(reason); }

inline const cli::Operand kCamera = {"CAMERA", cli::Operand::camera};

} // namespace vcam
