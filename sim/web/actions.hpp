// What a page may do with a camera. Each action is a command of vcam, with its checks and its words.
#pragma once

#include "sim/base/camera.hpp"
#include "sim/web/child.hpp"
#include "tools/cli/json.hpp"

#include <map>
#include <mutex>
#include <string>

namespace vcam::web {

struct Answer {
    int status = 200;      // of HTTP
    std::string text;      // for the page: what was said, or what was wrong
    std::string made = {}; // the folder of a camera that the action has made
};

class Actions {
public:
    // `vcam`: the command's path. `pace`: how many times as fast as a chip the flash of runs started here works.
    Actions(std::string vcam, double pace) : vcam_(std::move(vcam)), pace_(pace) {}
    // Ends the runs that were started here and waits for them.
    ~Actions();
    Actions(const Actions&) = delete;
    Actions& operator=(const Actions&) = delete;

    // {"action": NAME, ...}. Stop, power off and cut need no sound folder: a program of the camera may have spoilt it.
    Answer act(const std::string& folder, const cli::Json& request);
    // A file into the camera, or onto its microphone when the place is "mic.wav".
    Answer put(const Camera& camera, const std::string& place, const std::string& content);
    Answer get(const Camera& camera, const std::string& place) const;
    Answer diff(const Camera& camera) const;

private:
    Answer run(const Camera& camera, const cli::Json& request);
    Answer open_point(const Camera& camera, const std::string& point);
    Answer send_signal(const std::string& folder, int number);
    pid_t launcher(const std::string& folder);
    [[nodiscard]] Answer command(const Words& words) const;

    const std::string vcam_;
    const double pace_;
    std::mutex lock_;
    std::map<std::string, pid_t> runs_; // camera's folder to its launcher; guarded by lock_
};

} // namespace vcam::web
