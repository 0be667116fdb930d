// Cameras in which the explored command runs, each made anew from the one that is explored.
#pragma once

#include "sim/base/camera.hpp"
#include "sim/base/faults.hpp"
#include "sim/base/raw.hpp"
#include "sim/explore/flash_state.hpp"

#include <string>
#include <vector>

namespace vcam::explore {

// What one run of the command left.
struct Outcome {
    std::string ending;           // "exit 0", "reboot" ...
    std::string said;             // standard output and error, and the system log
    double longest_gap = 0;       // of the watchdog, seconds; 0 when nobody used it
    bool outside_changed = false; // the I2C devices or the clock chip's setting
    Flash flash;
    std::vector<faults::Progress> plan; // how far the fault plan has come
};

// What a camera is made with beside its flash.
struct Making {
    bool record = false;
    std::string plan = {}; // of faults
};

// Removes a folder when this process ends, however it ends: a process of its own waits for that.
class FolderKeeper {
public:
    explicit FolderKeeper(const std::string& folder);
    ~FolderKeeper(); // returns once the folder is gone
    FolderKeeper(const FolderKeeper&) = delete;
    FolderKeeper& operator=(const FolderKeeper&) = delete;

private:
    pid_t keeper_ = -1;
    Fd alive_; // its closing is the end
};

// A copy of a camera as it stands, from which further ones are made. The camera itself is never changed.
class Bench {
public:
    Bench(const Camera& camera, std::vector<std::string> command, std::vector<std::string> run_options);
    [[nodiscard]] const Camera& camera() const { return camera_; } // the copy, which nothing runs in
    [[nodiscard]] const std::string& folder() const { return scratch_.path(); }
    // A camera with this flash in `folder`, in place of what stood there.
    void make(const std::string& folder, const Flash& flash, const Making& making = {}) const;
    // Runs the command in the camera in `folder`. From any thread.
    [[nodiscard]] Outcome run(const std::string& folder) const;

private:
    const ScratchFolder scratch_;
    const FolderKeeper keeper_{scratch_.path()};
    const Camera camera_;
    const std::vector<std::string> command_, options_;
};

} // namespace vcam::explore
