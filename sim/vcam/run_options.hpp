// What vcam run, shell and exec are told on the command line.
#pragma once

#include "sim/base/camera.hpp"
#include "sim/sandbox/publish.hpp"
#include "sim/sandbox/sandbox.hpp"
#include "tools/cli/command_line.hpp"

#include <string>
#include <utility>
#include <vector>

namespace vcam {

struct RunOptions {
    std::vector<std::pair<std::string, std::string>> init; // options that pid 1 takes
    std::vector<std::string> environment;
    std::vector<Bind> binds;
    std::vector<Medium> media;
    std::vector<Port> ports;
    std::string neighbour;
    std::string microphone, speaker;     // host files
    std::string loop;                    // milliseconds from the loudspeaker to the microphone
    std::vector<std::string> start_only; // options given that act only on a camera's start
    bool realtime = false, verbose = false, no_preload = false, no_mark = false, force = false;
};

// What run and shell have.
std::vector<cli::Option> start_options(RunOptions& o);
// What exec has: it joins a running camera, so it has no binds, ports or media.
std::vector<cli::Option> environment_options(RunOptions& o);

} // namespace vcam
