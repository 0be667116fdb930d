// Programs that the server starts. They get none of its descriptors.
#pragma once

#include "sim/base/files.hpp"

#include <string>
#include <sys/types.h>
#include <vector>

namespace vcam::web {

using Words = std::vector<std::string>;

// Starts the program words[0]; a descriptor below 0 means /dev/null. Throws.
pid_t start(const Words& words, int in, int out, int err);
// As a shell counts it: 128 and the signal's number after a signal.
int status_of(pid_t child);

struct Output {
    int status = 0;
    std::string out, err;
};
// Runs it to its end, `most` bytes of each output are kept.
Output capture(const Words& words, size_t most = 64 << 20);

} // namespace vcam::web
