// How a camera stands, read from outside: everything but the content of its flash and its logs.
#pragma once

#include "sim/base/camera.hpp"
#include "sim/models/page.hpp"
#include "sim/view/status_board.hpp"
#include "tools/cli/json.hpp"

#include <memory>
#include <string>
#include <vector>

namespace vcam {

struct Status {
    std::string model, ending;
    std::string settings; // when changes of /etc reach the flash; empty before the first run
    pid_t running = 0;
    double seconds = 0; // camera time
    std::string wall;
    bool has_watchdog = false, armed = false, fired = false;
    int timeout_s = 0, feeds = 0;
    double longest_gap = 0, since_feed = 0;
    std::vector<std::string> modules, faults, serial;
    std::vector<std::string> devices; // of one's own
    BoardStatus board;
    std::unique_ptr<media::Page> sound;
};

// Makes the camera's folder the state folder of this process. Throws.
void attach_to(const Camera& camera);
// Of the camera that the process is attached to.
Status read_status(const Camera& camera);
// With an empty list "flash", for the caller to fill.
cli::Json status_json(const Camera& camera, const Status& s);
cli::Json watchdog_json(const Status& s);

// The lines of a file that are not empty; none of a file that is not there.
std::vector<std::string> lines_of(const std::string& path);

} // namespace vcam
