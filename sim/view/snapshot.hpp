// What a page shows of a camera, in sections; each look gives those that have changed.
#pragma once

#include "sim/view/flash_map.hpp"
#include "sim/view/outcome.hpp"
#include "sim/view/status.hpp"

#include <map>
#include <string>

namespace vcam {

// New whole lines of a file that grows, from a place on.
class Tail {
public:
    explicit Tail(std::string path) : path_(std::move(path)) {}
    void restart(uint64_t from) { at_ = from; }
    void restart_at_end();
    // At most the last `most` of them. The lines of a file that has become shorter begin anew.
    std::vector<std::string> lines(size_t most);

private:
    const std::string path_;
    uint64_t at_ = 0;
};

class Snapshot {
public:
    // Attaches the process to the camera. Throws where there is none.
    explicit Snapshot(const std::string& folder);
    [[nodiscard]] const Camera& camera() const { return camera_; }
    // An object with the sections that differ from what was given last; `full` gives all of them, with all lines of
    // the last run. Null when nothing has changed.
    cli::Json next(bool full);
    // The step of the upgrade that runs, as the last look saw the flash; "" without one. Reads the whole record.
    [[nodiscard]] std::string phase() const { return phase_of(camera_, flash_); }

private:
    void put(cli::Json& out, const char* section, cli::Json value);
    void add_lines(cli::Json& out, bool full);
    void add_exploration(cli::Json& out, bool full);
    bool new_run();
    const Outcome& outcome(const Status& s);

    const Camera camera_;
    FlashMap flash_;
    Tail journal_, syslog_, feeds_, console_;
    std::map<std::string, size_t> given_; // section to a hash of what was given
    int64_t run_ = -1;                    // when the last run began
    int64_t ended_ = 0;                   // when the note of its end was written
    int64_t explored_ = -1;               // when the map of an exploration was written
    Outcome outcome_;                     // of the last run; an empty kind: to be read again
};

} // namespace vcam
