// Work that several threads share.
#pragma once

#include "sim/explore/explorer.hpp"

#include <functional>
#include <mutex>
#include <string>

namespace vcam::explore {

struct Work {
    std::string doing;    // for the progress
    std::string folder;   // each worker gets a name in it
    size_t count = 0;     // items
    unsigned workers = 1; // threads
};
// Calls `one` for each item, with a name that no other thread has at that time. Progress is told under `lock`. Throws what
// the first item that failed threw, after the others have ended.
void in_parallel(const Work& work, const Progress& progress, std::mutex& lock,
                 const std::function<void(size_t item, const std::string& folder)>& one);

} // namespace vcam::explore
