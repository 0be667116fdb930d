// The commands of fwpkg. Each takes its own arguments (argv[0] is its name) and returns the
// exit status of the program.
#pragma once

namespace fwpkg {

enum Status {
    kGood = 0,
    kRefused = 1, // the package or image is not what a device takes
    kTrouble = 2, // wrong usage, or a file that cannot be read or written
};

int build(int argc, char** argv);
int info(int argc, char** argv);
int check(int argc, char** argv);
int extract(int argc, char** argv);

} // namespace fwpkg
