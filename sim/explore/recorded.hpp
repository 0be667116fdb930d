// A recorded run of the explored command in a copy of the camera.
#pragma once

#include "sim/explore/bench.hpp"
#include "sim/explore/cuts.hpp"
#include "sim/explore/explorer.hpp"

#include <algorithm>
#include <string>

namespace vcam::explore {

// The recorded run with all that the further steps read of it.
struct Recorded {
    Recorded(const Camera& camera, const Settings& settings)
        : bench(camera, settings.command, settings.run_options), old(read_flash(bench.camera())),
          folder(bench.folder() + "/recorded"),
          outcome((bench.make(folder, old, {.record = true}), bench.run(folder))),
          recording(folder + "/record"), run{bench.camera(), recording,     old,
                                             outcome.flash,  settings.seed, outcome.ending},
          versions(versions_of(run))
    {
        if (versions.package) versions.defaults = defaults();
    }
    // What the command makes of the settings where there were none.
    [[nodiscard]] Files defaults() const
    {
        Flash empty = old;
        std::fill(empty.images.back().begin(), empty.images.back().end(), 0xFF);
        const std::string place = bench.folder() + "/defaults";
        bench.make(place, empty);
        return settings_in(run, bench.run(place).flash);
    }
    const Bench bench;
    const Flash old;
    const std::string folder;
    const Outcome outcome;
    const Recording recording;
    const Run run;
    Versions versions;
};

} // namespace vcam::explore
