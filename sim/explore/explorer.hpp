// One exploration: a recorded run, every cut of it, and the same command again.
#pragma once

#include "sim/explore/report.hpp"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vcam::explore {

struct Settings {
    std::vector<std::string> command;
    std::vector<std::string> run_options; // of vcam run
    uint64_t seed = 1;
    unsigned jobs = 1;  // runs at a time
    uint64_t again = 0; // drawn states, beside the first of each kind; UINT64_MAX: all
    bool replay_only = false;
    bool fail = false;    // library calls too
    uint64_t doubles = 0; // drawn pairs of such failures
    unsigned shard = 1, shards = 1;
    std::optional<uint32_t> fingerprint; // of the run whose point is opened
};

// What is going on, and the share of it that is done, 0 to 1.
using Progress = std::function<void(const std::string& doing, double done)>;

// Records a run of the command in a copy of the camera and explores it. Throws.
Report explore(const Camera& camera, const Settings& settings, const Progress& progress);
// Makes the camera `folder`, in place of what stood there, at a point of such a run: "12/half". Throws for a point that there
// is not and for a run of another fingerprint.
void open_point(const Camera& camera, const Settings& settings, const std::string& point,
                const std::string& folder);
// Names what the files mtd0 to mtd3 of each folder hold, an object a folder:
//   folder, name ("" when none fits), words,
//   point: "12/137" for the first cut of the run that leaves these bytes, "" when none does,
//   files: path to {whose, crc32 (null for a damaged file)}
// Throws for a file that is not there or has not the partition's size.
cli::Json name_dumps(const Camera& camera, const Settings& settings, const std::vector<std::string>& folders);

} // namespace vcam::explore
