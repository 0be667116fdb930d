// What the settings partition of a state holds, file by file, and whose the files are.
#pragma once

#include "sim/explore/flash_state.hpp"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vcam::explore {

// Path below /etc to content; a link's content is its target. No content: the data nodes are damaged.
using Files = std::map<std::string, std::optional<std::string>>;

// As the file system driver reads the partition.
Files files_of(const Bytes& image, uint64_t erase_size, const std::set<uint32_t>& bad_blocks);

enum class Whose : uint8_t {
    users,    // as before the run
    packages, // as in the package
    finished, // as the finished run left it
    defaults, // as the program makes it where it finds none
    between,  // whole: each line is from one of the versions
    aside,    // not there or torn, with the user's in its twin FILE.kept
    missing,
    empty,
    damaged,
};
const char* name_of(Whose whose); // "user's"

// The versions of each file that a run knows. `package`: what the program wrote into the partition, before any setting was put
// back; not there when it wrote none. `defaults`: what the same command leaves where there were no settings.
struct Versions {
    Files before, finished;
    std::optional<Files> package, defaults;
};

struct SettingsState {
    std::map<std::string, Whose> files;
    std::vector<std::string> left_over; // files of none of the versions: locks, temporary files
    // What the files have in common, the first that holds.
    enum class Summary : uint8_t {
        none,
        damaged,
        missing,
        aside,
        users,
        finished,
        packages,
        between
    } summary = Summary::none;
    [[nodiscard]] bool has_lock() const; // of a writer that was killed
    bool operator==(const SettingsState&) const = default;
    auto operator<=>(const SettingsState&) const = default;
};
const char* name_of(SettingsState::Summary summary);

SettingsState judge(const Files& now, const Versions& versions);

} // namespace vcam::explore
