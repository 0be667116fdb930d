// The commands of fwpkg. Each takes its own arguments and returns the exit status of the program.
#pragma once

#include "tools/cli/command_line.hpp"

namespace fwpkg {

enum Status {
    kGood = 0,
    kRefused = 1, // the package or image is not what a device takes
    kTrouble = 2, // wrong usage, or a file that cannot be read or written
};

int build(const cli::Arguments& arguments);
int info(const cli::Arguments& arguments);
int check(const cli::Arguments& arguments);
int extract(const cli::Arguments& arguments);

} // namespace fwpkg
