// What an exploration has found, apart from how it is shown.
#pragma once

#include "sim/explore/cuts.hpp"
#include "tools/cli/json.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vcam::explore {

inline constexpr unsigned kSettingsPartition = 3;

// What holds at every point and after every run.
enum class Promise : uint8_t { named, boot, settings, ends, success, told, watchdog, completes };
struct PromiseText {
    const char *name, *text;
};
const PromiseText& text_of(Promise promise);
inline constexpr unsigned kPromises = 8;

struct Broken {
    Promise promise;
    std::string point; // "12/half"; "run" for the recorded run itself
    std::string what;
};

// A flash operation without its data.
struct Step {
    unsigned partition;
    std::string what; // "write"
    uint32_t offset, size;
    double seconds; // of camera time
    std::string process;
};

// The states of one description.
struct Class {
    std::string name, words; // of the table of names; "" when none fits
    cli::Json settings;      // file to whose, and what is left over
    std::string first;       // point
    uint64_t points = 0;
    std::map<std::string, uint64_t> again = {}; // name after the same command, how often
};

struct ReportPoint {
    uint32_t step;
    Form form;
    uint32_t state; // index of a class
};

struct Report {
    std::string command, date;
    std::vector<std::string> words, options; // of the command, and of its vcam run
    uint32_t fingerprint = 0;                // of the flash before the run and of its operations
    std::string settings;                    // when they reach the flash
    uint64_t seed = 0;
    unsigned shard = 1, shards = 1;
    uint64_t states = 0;    // different ones
    uint64_t runs = 0;      // of the command, the recorded one included
    double longest_gap = 0; // of the watchdog in all runs, seconds
    std::vector<Step> steps;
    std::vector<Class> classes;
    std::vector<ReportPoint> points;
    std::vector<Broken> broken;
    std::map<std::string, std::map<std::string, uint64_t>> failures = {}; // call, state that is left, runs
};

const StateName* row_of(const Class& state);
std::string name_of(const ReportPoint& point);

// A run without an operation on the flash, and no call that failed: no promise was put to the test.
bool tried_nothing(const Report& report);
// The run wrote settings, but at unmount or at its end only, as the host lets nobody serve the camera's file system: the cuts
// between their changes are missing.
bool settings_late(const Report& report);
// How it is shown.
std::string table_of(const Report& report);
std::string json_lines(const Report& report); // an object a line
std::string junit_of(const Report& report);
std::string page_of(const Report& report);
cli::Json map_of(const Report& report); // what a page draws
// Puts shares of one exploration together, each as json_lines wrote it. Throws when they are of different runs.
Report merged(const std::vector<std::string>& files);

} // namespace vcam::explore
