// Process names of a list file.
#pragma once

#include "service/cutil_proc.h"

#include <cstddef>

namespace zep {

struct KillList {
    size_t count;
    char names[CUTIL_KILL_LIST_NAMES][CUTIL_KILL_LIST_NAME_SIZE];
};

// Reads the names from the descriptor, which stays the caller's; what does not fit is passed over.
void read_kill_list(int fd, KillList& list);

} // namespace zep
